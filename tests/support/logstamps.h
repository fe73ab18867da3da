// SPDX-License-Identifier: MIT
#pragma once

#include <QRegularExpression>
#include <QStringList>

/// Log lines with what differs from run to run replaced: the time stamp in front by "TIME", the duration of a
/// request by "N".
inline QStringList withoutStamps(QStringList lines)
{
    static const QRegularExpression stamp(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} - "));
    static const QRegularExpression duration(QStringLiteral(" \\(took \\d+ms\\)$"));
    for (QString& line : lines) {
        line.replace(stamp, QStringLiteral("TIME - ")).replace(duration, QStringLiteral(" (took Nms)"));
    }
    return lines;
}
