// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include "files.h"

/// A stand-in for the USB drive: a directory, and the marker file that says that it is mounted.
class Drive
{
public:
    explicit Drive(const QString& directory = QStringLiteral("/usbmnt"),
                   const QString& markerFile = QStringLiteral("/tmp/usbdrive"))
        : root(directory)
        , mark(markerFile)
    {
    }

    /// Plugs the drive in, or pulls it: only the marker is looked at.
    void plug() const { writeFile(mark, {}); }
    void pull() const { QFile::remove(mark); }

    QString path() const { return root; }
    QString path(const QString& name) const { return root + QLatin1Char('/') + name; }
    QString marker() const { return mark; }

    /// All entries of the drive.
    QStringList entries() const
    {
        return QDir(root).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                                    QDir::Name);
    }

    QByteArray content(const QString& name) const { return contentOf(path(name)); }
    void put(const QString& name, const QByteArray& octets) const { writeFile(path(name), octets); }

private:
    QString root;
    QString mark;
};
