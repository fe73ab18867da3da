// SPDX-License-Identifier: MIT
#include "logline.h"

#include <QString>
#include <QtDebug>

namespace Varnel {

void logLine(const QString& line)
{
    qDebug("%s", line.toLatin1().constData());
}

void logCriticalLine(const QString& line)
{
    qCritical("%s", line.toLatin1().constData());
}

void logLongLine(const QString& line)
{
    const QMessageLogContext context(QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC, "default");
    qt_message_output(QtDebugMsg, context, line);
}

} // namespace Varnel
