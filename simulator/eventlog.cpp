// SPDX-License-Identifier: MIT
#include "eventlog.h"

#include <QDateTime>
#include <QJsonDocument>

#include <cstdio>
#include <tuple>

namespace Simulator {

void EventLog::line(const QString& text) const
{
    const QByteArray octets = text.toUtf8() + '\n';
    // The program must not end when a reader goes away.
    std::ignore = std::fwrite(octets.constData(), 1, static_cast<size_t>(octets.size()), stdout);
    std::ignore = std::fflush(stdout);
}

void EventLog::event(QJsonObject description) const
{
    if (!enabled) {
        return;
    }
    description.insert(QStringLiteral("time"), static_cast<double>(QDateTime::currentMSecsSinceEpoch()));
    line(QString::fromUtf8(QJsonDocument(description).toJson(QJsonDocument::Compact)));
}

} // namespace Simulator
