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

} // namespace Varnel
