// SPDX-License-Identifier: MIT
#pragma once

#include "coremap.h"
#include "outcome.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonValue>

#include <optional>

namespace Simulator {

/// The octets of a controller value on the wire: numbers little-endian, floats as decimal text and strings as
/// UTF-8, both with their last octet first (the panel reverses every value). Nothing when `value` does not
/// fit `type`.
std::optional<QByteArray> encodeCoreValue(CoreType type, const QJsonValue& value);

/// Values of the Core section. They change from frame to frame, so that one can watch a bridge work.
class CoreFeed
{
public:
    /// Replaces the values by those of a mapping file.
    void setPoints(const QList<CorePoint>& corePoints);

    /// Moves every value to its next one, unless it is fixed.
    void advance();

    /// Fixes the value of a register (by id or by name) at `value`.
    Varnel::Outcome<> hold(const QString& key, const QJsonValue& value);

    /// Lets a fixed value change again; `key` "*": all of them.
    Varnel::Outcome<> release(const QString& key);

    /// Adds an unchanged item to every following Core section, after the values: for coordinates that no
    /// mapping mentions, odd lengths and types.
    void addRawItem(const CorePoint& coordinate, const QByteArray& octets);

    /// Removes the raw items again.
    void clearRawItems() { rawItems.clear(); }

    /// True when there is anything to send.
    [[nodiscard]] bool hasItems() const { return !values.isEmpty() || !rawItems.isEmpty(); }

    /// The Core section, header included.
    [[nodiscard]] QByteArray section() const;

    /// One object per value: id, name, value, held.
    [[nodiscard]] QJsonArray toJson() const;

private:
    struct Value
    {
        CorePoint point;
        QJsonValue current;
        bool held = false;
    };

    [[nodiscard]] QJsonValue generate(const CorePoint& point, int position) const;
    [[nodiscard]] QList<int> find(const QString& key) const;

    QList<Value> values;
    QList<QByteArray> rawItems;
    quint32 step = 0;
};

} // namespace Simulator
