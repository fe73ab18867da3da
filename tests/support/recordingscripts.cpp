// SPDX-License-Identifier: MIT
#include "recordingscripts.h"

#include <algorithm>

#include <QDir>
#include <QFile>
#include <QTest>

QStringList RecordingScripts::allNames()
{
    return {"r7m.sh"_s,          "netcfg.sh"_s,        "snmpctl.sh"_s,    "snmpcfg.sh"_s,
            "snmptrap.sh"_s,     "modbuscfg.sh"_s,     "usbremount.sh"_s, "mbserverstart.sh"_s,
            "mbserverstop.sh"_s, "mbserverupdate.sh"_s};
}

RecordingScripts::RecordingScripts(const QString& scriptDirectory)
    : directory(scriptDirectory)
{
    QDir().mkpath(directory);
    const QStringList names = allNames();
    std::for_each(names.cbegin(), names.cend(), [this](const QString& name) { remove(name); });
    clear();
}

bool RecordingScripts::install(const QString& name, const QByteArray& commands) const
{
    // The demonstration uses this script, too.
    QFile original(VARNEL_SOURCE_DIR "/scripts/record-run"_s);
    // Written aside and moved: a script that runs meanwhile is never cut short.
    QFile file(path("."_s + name));
    if (!original.open(QIODevice::ReadOnly) || !file.open(QIODevice::WriteOnly)) {
        return false;
    }
    const QByteArray text =
        original.readAll().replace("#!/bin/sh\n", "#!/bin/sh\nSCRIPT_RUNS='" + record().toUtf8() + "'\n") +
        commands + '\n';
    file.write(text);
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    remove(name);
    return file.rename(path(name));
}

bool RecordingScripts::installAll() const
{
    const QStringList names = allNames();
    return std::all_of(names.cbegin(), names.cend(), [this](const QString& name) { return install(name); });
}

void RecordingScripts::remove(const QString& name) const
{
    QFile::remove(path(name));
}

QList<QByteArrayList> RecordingScripts::calls() const
{
    QFile file(record());
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QByteArrayList words = file.readAll().split('\0');
    QList<QByteArrayList> result;
    // The last element is the text after the last NUL, which is empty.
    while (words.size() > 1) {
        const int count = words.takeFirst().toInt();
        result += words.mid(0, count);
        words = words.mid(count);
    }
    return result;
}

QStringList RecordingScripts::runLines() const
{
    QStringList lines;
    const QList<QByteArrayList> all = calls();
    for (const QByteArrayList& call : all) {
        lines += QString::fromUtf8(call.join(' '));
    }
    return lines;
}

QStringList RecordingScripts::argumentsOf(const QString& name) const
{
    QStringList result;
    const QStringList lines = runLines();
    for (const QString& line : lines) {
        if (line.section(QLatin1Char(' '), 0, 0) == name) {
            result += line.section(QLatin1Char(' '), 1);
        }
    }
    return result;
}

bool RecordingScripts::awaitRuns(int count) const
{
    const bool reached = awaitTrue([this, count] { return calls().size() >= count; });
    if (!reached) {
        qWarning().noquote() << "Not" << count << "script runs, but\n " << runLines().join("\n  "_s);
    }
    return reached;
}

void RecordingScripts::clear() const
{
    QFile::remove(record());
}
