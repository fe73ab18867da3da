// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QList>
#include <QStringList>

/// A shell script that appends the arguments of each of its runs to a file beside it, each argument between
/// two record marks, so that blanks, quotes and line ends in them are seen as they are.
class RecordingScript
{
public:
    /// Writes the script `directory`/`name`, executable.
    RecordingScript(const QString& directory, const QString& name)
        : scriptFile(directory + QLatin1Char('/') + name)
        , record(scriptFile + QStringLiteral(".argv"))
    {
        QFile file(scriptFile);
        if (!file.open(QIODevice::WriteOnly)) {
            qFatal("cannot write the recording script");
        }
        file.write(
            "#!/bin/sh\n"
            "{ printf 'run\\036'; for argument; do printf '%s\\036' \"$argument\"; done; printf '\\035'; }"
            " >> \"$0.argv\"\n");
        file.close();
        file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
    }

    QString path() const { return scriptFile; }

    void setExecutable(bool executable)
    {
        const auto plain = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        QFile::setPermissions(scriptFile, executable ? plain | QFileDevice::ExeOwner : plain);
    }

    /// The arguments of every run so far.
    QList<QStringList> runs() const
    {
        QFile file(record);
        if (!file.open(QIODevice::ReadOnly)) {
            return {};
        }
        QList<QStringList> result;
        for (const QByteArray& run : file.readAll().split('\035')) {
            if (!run.isEmpty()) {
                QStringList fields = QString::fromUtf8(run).split(QChar(036));
                fields.removeFirst(); // the word "run"
                fields.removeLast();  // what follows the last mark
                result.append(fields);
            }
        }
        return result;
    }

private:
    QString scriptFile;
    QString record;
};
