// SPDX-License-Identifier: MIT
#pragma once

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include "scopedsetting.h"

/// A stand-in for the USB drive: a directory, the marker file beside it, and a remount script that records
/// its arguments, all in a temporary directory that the settings point to.
class UsbStick
{
public:
    UsbStick()
    {
        QDir(root.path()).mkpath(QStringLiteral("stick of the day"));
        QDir(root.path()).mkpath(QStringLiteral("bin"));
        plug();
        writeFile(script(), "#!/bin/sh\necho \"$*\" >> '" + QFile::encodeName(record()) + "'\n");
        QFile::setPermissions(script(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    Q_DISABLE_COPY_MOVE(UsbStick)

    void plug() const { writeFile(marker(), {}); }
    void pull() const { QFile::remove(marker()); }

    QString path() const { return root.filePath(QStringLiteral("stick of the day")); }
    QString path(const QString& name) const { return path() + QLatin1Char('/') + name; }
    QString marker() const { return root.filePath(QStringLiteral("plugged")); }
    QString script() const { return root.filePath(QStringLiteral("bin/usbremount.sh")); }

    /// The argument lists with which the remount script was run.
    QStringList remounts() const
    {
        return QString::fromUtf8(readFile(record())).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    /// All entries of the drive.
    QStringList entries() const
    {
        return QDir(path()).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                                      QDir::Name);
    }

    QByteArray content(const QString& name) const { return readFile(path(name)); }
    void put(const QString& name, const QByteArray& octets) const { writeFile(path(name), octets); }

private:
    QString record() const { return root.filePath(QStringLiteral("remounts")); }

    static QByteArray readFile(const QString& name)
    {
        QFile file(name);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    static void writeFile(const QString& name, const QByteArray& octets)
    {
        QFile file(name);
        if (!file.open(QIODevice::WriteOnly) || file.write(octets) != octets.size()) {
            qFatal("cannot write %s", qUtf8Printable(name));
        }
    }

    QTemporaryDir root;
    ScopedSetting<QString> directory{"Files", "Directory", path()};
    ScopedSetting<QString> markerFile{"Files", "UsbDriveFile", marker()};
    ScopedSetting<QString> scripts{"Files", "ScriptDir", root.filePath(QStringLiteral("bin"))};
};
