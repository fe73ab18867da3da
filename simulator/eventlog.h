// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QString>

namespace Simulator {

/// Standard output: the ready line, and one JSON object a line for everything that happens. Each line is
/// flushed at once, because the reader of a pipe waits for it.
class EventLog
{
public:
    /// Events are written only while this is on; lines always are.
    void setEnabled(bool on) { enabled = on; }

    /// Writes one line unchanged.
    void line(const QString& text) const;

    /// Writes one event, with the time in milliseconds since the Epoch added as "time".
    void event(QJsonObject description) const;

private:
    bool enabled = false;
};

} // namespace Simulator
