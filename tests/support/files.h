// SPDX-License-Identifier: MIT
#pragma once

#include <QDir>
#include <QFile>

/// The octets of a file; none when it cannot be read.
inline QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Writes a file in the place of any other, and makes its directory.
inline void writeFile(const QString& path, const QByteArray& octets,
                      QIODevice::OpenMode mode = QIODevice::WriteOnly)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    if (!file.open(mode) || file.write(octets) != octets.size()) {
        qFatal("cannot write %s", qUtf8Printable(path));
    }
}
