// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QFile>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVector>

/// The octets of each example table of a documentation page: the first columns of the rows "| `ce 01` | ...",
/// joined, for every table below the heading `heading`. Empty when the page cannot be read.
inline QVector<QByteArray> exampleOctets(const QString& path, const QString& heading)
{
    static const QRegularExpression row(QStringLiteral("^\\| `([0-9a-f ]+)` \\|"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QVector<QByteArray> tables;
    bool insideTable = false;
    const QString section = QString::fromUtf8(file.readAll()).section(heading, 1);
    const QStringList lines = section.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const auto found = row.match(line);
        if (!found.hasMatch()) {
            insideTable = insideTable && line.startsWith(QLatin1Char('|'));
            continue;
        }
        if (!insideTable) {
            tables.append(QByteArray());
            insideTable = true;
        }
        tables.last() += QByteArray::fromHex(found.captured(1).toLatin1());
    }
    return tables;
}
