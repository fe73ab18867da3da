// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QTemporaryDir>

#include "recordingscripts.h"
#include "scopedsetting.h"

/// The directory of the panel's scripts, full of recording ones.
class ScriptDirectory
{
public:
    /// One call: the script's name and its arguments.
    using Call = QByteArrayList;

    explicit ScriptDirectory(const QList<QByteArray>& names = {"r7m.sh", "netcfg.sh", "snmpctl.sh",
                                                               "snmpcfg.sh", "snmptrap.sh", "modbuscfg.sh"})
    {
        for (const QByteArray& name : names) {
            put(name);
        }
    }

    Q_DISABLE_COPY_MOVE(ScriptDirectory)

    QString path(const QByteArray& name) const { return directory.filePath(QString::fromLatin1(name)); }

    /// A recording script of that name, executable or not.
    void put(const QByteArray& name, bool executable = true) const
    {
        if (!scripts.install(QString::fromLatin1(name))) {
            qFatal("cannot write the script %s", name.constData());
        }
        if (!executable) {
            QFile::setPermissions(path(name), QFile::ReadOwner | QFile::WriteOwner);
        }
    }

    void remove(const QByteArray& name) const { scripts.remove(QString::fromLatin1(name)); }

    /// All calls since the last clear(), in order.
    QList<Call> calls() const { return scripts.calls(); }

    /// The same with the words of each call in one line, for calls without blanks in their arguments.
    QList<QByteArray> callLines() const
    {
        QList<QByteArray> lines;
        const QList<Call> all = calls();
        for (const Call& call : all) {
            lines << call.join(' ');
        }
        return lines;
    }

    void clear() const { scripts.clear(); }

private:
    QTemporaryDir directory;
    RecordingScripts scripts{directory.path()};
    ScopedSetting<QString> setting{"Files", "ScriptDir", directory.path()};
};
