// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>
#include <QVector>

#include "files.h"

/// A mapping with a defect, and what the checker says of it.
struct MapDefect
{
    QByteArray name;
    QByteArray mapping;
    QStringList findings;
};

inline QByteArray mapData(const char* name)
{
    return contentOf(QStringLiteral(MAP_DATA "/") + QLatin1String(name));
}

/// The rows of data/defects.txt, which says how they are written.
inline QVector<MapDefect> mapDefects()
{
    QVector<MapDefect> defects;
    QByteArrayList whole;
    QByteArrayList from;
    QByteArrayList to;
    const auto apply = [&] {
        if (!whole.isEmpty()) {
            defects.last().mapping = whole.join('\n');
        } else if (!from.isEmpty()) {
            if (defects.last().mapping.count(from.join('\n')) != 1) {
                qFatal("%s: its text is not exactly once in the mapping", defects.last().name.constData());
            }
            defects.last().mapping.replace(from.join('\n'), to.join('\n'));
        }
        whole.clear();
        from.clear();
        to.clear();
    };
    for (const QByteArray& line : mapData("defects.txt").split('\n')) {
        const QByteArray text = line.mid(2);
        const bool endsReplacement = !to.isEmpty() && !line.startsWith('>');
        if (endsReplacement || line.startsWith('!')) {
            apply();
        }
        if (line.startsWith("==")) {
            defects.append({line.mid(3), mapData("fault-free.map"), {}});
        } else if (line.startsWith('=')) {
            whole << text;
        } else if (line.startsWith('<')) {
            from << text;
        } else if (line.startsWith('>')) {
            to << text;
        } else if (line.startsWith('!')) {
            defects.last().findings << QString::fromUtf8(text);
        }
    }
    return defects;
}

/// The row of this name; an empty one when there is none.
inline MapDefect mapDefect(const char* name)
{
    const QVector<MapDefect> all = mapDefects();
    const auto found =
        std::find_if(all.begin(), all.end(), [name](const MapDefect& one) { return one.name == name; });
    return found == all.end() ? MapDefect() : *found;
}
