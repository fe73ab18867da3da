// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QList>
#include <QTemporaryDir>

#include "scopedsetting.h"

/// The directory of the panel's scripts, full of scripts that record their calls in one list, so that the
/// order among them is seen, too. Arguments are kept as the octets that arrived.
class ScriptDirectory
{
public:
    /// One call: the script's name and its arguments.
    using Call = QList<QByteArray>;

    explicit ScriptDirectory(const QList<QByteArray>& names = {"r7m.sh", "netcfg.sh", "snmpctl.sh",
                                                               "snmpcfg.sh", "snmptrap.sh", "modbuscfg.sh"})
        : setting("Files", "ScriptDir", directory.path())
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
        QFile file(path(name));
        if (!file.open(QIODevice::WriteOnly)) {
            qFatal("cannot write the script %s", name.constData());
        }
        file.write("#!/bin/sh\n"
                   "{ printf '%s\\036' \"${0##*/}\" \"$@\"; printf '\\035'; } >> \"${0%/*}/calls\"\n");
        file.close();
        file.setPermissions(executable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                       : QFile::ReadOwner | QFile::WriteOwner);
    }

    void remove(const QByteArray& name) const { QFile::remove(path(name)); }

    /// All calls since the last clear(), in order.
    QList<Call> calls() const
    {
        QFile file(path("calls"));
        QList<Call> result;
        if (file.open(QIODevice::ReadOnly)) {
            for (const QByteArray& call : file.readAll().split('\035')) {
                Call words = call.split('\036');
                words.removeLast(); // what follows the last mark
                if (!words.isEmpty()) {
                    result << words;
                }
            }
        }
        return result;
    }

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

    void clear() const { QFile::remove(path("calls")); }

private:
    QTemporaryDir directory;
    ScopedSetting<QString> setting;
};
