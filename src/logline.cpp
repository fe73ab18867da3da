// SPDX-License-Identifier: MIT
#include "logline.h"

#include <algorithm>

#include <QByteArray>
#include <QString>
#include <QtDebug>

#include "helpers.h"

namespace Varnel {

namespace {

/// The line in Latin-1. Text from a server, a file name or a script must not start another line or control
/// the terminal that shows it.
QByteArray printable(const QString& line)
{
    QByteArray text = line.toLatin1();
    const auto isControl = [](char c) { return (static_cast<uchar>(c) & 0x7F) < 0x20 || c == 0x7F; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    return text;
}

QString stamped(const QString& line)
{
    return QStringLiteral("%1 - %2").arg(Helpers::now(), line);
}

} // namespace

void logLine(const QString& line)
{
    qDebug("%s", printable(line).constData());
}

void logCriticalLine(const QString& line)
{
    qCritical("%s", printable(line).constData());
}

void logStamped(const QString& line)
{
    logLine(stamped(line));
}

void logCriticalStamped(const QString& line)
{
    logCriticalLine(stamped(line));
}

} // namespace Varnel
