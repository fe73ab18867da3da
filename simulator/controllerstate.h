// SPDX-License-Identifier: MIT
#pragma once

#include "outcome.h"
#include "wirelayout.h"

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QMap>

namespace Simulator {

/// What the simulated controller says in its fixed sections. The octets of each section are the state
/// itself, so that what is set here is what is sent.
class ControllerState
{
public:
    /// Starts with the initial values of the wire layout.
    ControllerState();

    /// Sets one field; `path` is "section.field", e.g. "gpiostate.good". A refused one leaves the state
    /// unchanged.
    Varnel::Outcome<> set(const QString& path, const QJsonValue& value);

    /// The octets of a section, header included; empty for an unknown name.
    [[nodiscard]] QByteArray section(const QString& name) const;

    /// One field as it reads back: numbers, booleans, words for outputs, text for addresses and texts; an
    /// undefined value for an unknown path.
    [[nodiscard]] QJsonValue value(const QString& path) const;

    /// All sections as objects of their fields.
    [[nodiscard]] QJsonObject toJson() const;

private:
    QMap<QString, QByteArray> sections;
};

} // namespace Simulator
