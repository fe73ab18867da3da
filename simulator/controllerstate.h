// SPDX-License-Identifier: MIT
#pragma once

#include "outcome.h"
#include "wirelayout.h"

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QMap>

namespace Simulator {

/// The simulated controller's fixed sections. The octets of each section are the state itself, so the frames
/// carry exactly what is set here.
class ControllerState
{
public:
    /// Starts with the initial values of the wire layout.
    ControllerState();

    /// Sets one field; `path` is "section.field", e.g. "gpiostate.good". A refused value leaves the state
    /// unchanged.
    Varnel::Outcome<> set(const QString& path, const QJsonValue& value);

    /// The octets of a section, header included; empty for an unknown name.
    [[nodiscard]] QByteArray section(const QString& name) const;

    /// The value of one field: a number, a boolean, a word for an output, a text for an address or text;
    /// undefined for an unknown path.
    [[nodiscard]] QJsonValue value(const QString& path) const;

    /// All sections as objects of their fields.
    [[nodiscard]] QJsonObject toJson() const;

private:
    QMap<QString, QByteArray> sections;
};

} // namespace Simulator
