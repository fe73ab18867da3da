// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QString>

#include "jsonlocator.h"

// The names of a mapping's parts in findings, and the lines of these parts in the file.

inline JsonPath registerPath(int index)
{
    return JsonPath() / QStringLiteral("registers") / index;
}

inline JsonPath tablePath(int index)
{
    return JsonPath() / QStringLiteral("tables") / index;
}

inline QString quoted(const QString& text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

inline QString registerName(const QJsonObject& reg)
{
    return QStringLiteral("register %1 %2")
        .arg(reg.value(QLatin1String("id")).toInt())
        .arg(quoted(reg.value(QLatin1String("name")).toString()));
}

inline QString tableName(const QJsonObject& table)
{
    return QStringLiteral("table %1").arg(quoted(table.value(QLatin1String("name")).toString()));
}
