// SPDX-License-Identifier: MIT
#include "logline.h"

#include <QString>
#include <QtDebug>

#include "helpers.h"

namespace Varnel {

namespace {

QString stamped(const QString& line)
{
    return QStringLiteral("%1 - %2").arg(Helpers::now(), line);
}

} // namespace

void logLine(const QString& line)
{
    qDebug("%s", line.toLatin1().constData());
}

void logCriticalLine(const QString& line)
{
    qCritical("%s", line.toLatin1().constData());
}

void logStamped(const QString& line)
{
    logLine(stamped(line));
}

void logCriticalStamped(const QString& line)
{
    logCriticalLine(stamped(line));
}

void logLongLine(const QString& line)
{
    const QMessageLogContext context(QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC, "default");
    qt_message_output(QtDebugMsg, context, line);
}

} // namespace Varnel
