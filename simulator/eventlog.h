// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QString>

namespace Simulator {

/// Standard output: the ready line, and one JSON object a line for everything that happens. Each line is
/// flushed at once, since the reader of a pipe waits for it.
class EventLog
{
public:
    /// Events are written only while this is on; lines always are.
    void setEnabled(bool on) { enabled = on; }

    /// One line as it stands.
    void line(const QString& text) const;

    /// One event, with the time in milliseconds since the Epoch added as "time".
    void event(QJsonObject description) const;

private:
    bool enabled = false;
};

} // namespace Simulator
