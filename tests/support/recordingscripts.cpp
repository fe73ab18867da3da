// SPDX-License-Identifier: MIT
#include "recordingscripts.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

const auto scriptDirectory = QStringLiteral("/usr/local/bin/");
const auto recordFile = QStringLiteral("/run/script-runs");

/// The script that the demonstration uses, too: it records the run and succeeds.
QByteArray recordingScript()
{
    QFile file(QStringLiteral(VARNEL_SOURCE_DIR "/scripts/record-run"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray behaviourLine(ScriptBehaviour behaviour)
{
    switch (behaviour) {
    case ScriptBehaviour::Succeeds:
        return "exit 0\n";
    case ScriptBehaviour::Fails:
        return "echo 'told to fail' >&2\nexit 3\n";
    case ScriptBehaviour::Hangs:
        return "sleep infinity\n";
    case ScriptBehaviour::KillsItself:
        return "kill -KILL $$\n";
    }
    Q_UNREACHABLE();
}

} // namespace

QStringList RecordingScripts::allNames()
{
    return {QStringLiteral("r7m.sh"),
            QStringLiteral("netcfg.sh"),
            QStringLiteral("snmpctl.sh"),
            QStringLiteral("snmpcfg.sh"),
            QStringLiteral("snmptrap.sh"),
            QStringLiteral("modbuscfg.sh"),
            QStringLiteral("mbserverstart.sh"),
            QStringLiteral("mbserverstop.sh"),
            QStringLiteral("mbserverupdate.sh"),
            QStringLiteral("usbremount.sh")};
}

RecordingScripts::RecordingScripts()
{
    QDir().mkpath(scriptDirectory);
    const QStringList names = allNames();
    for (const QString& name : names) {
        remove(name);
    }
    clear();
}

bool RecordingScripts::install(const QString& name, ScriptBehaviour behaviour)
{
    // Written aside and moved: a script that runs meanwhile is never cut short.
    const QString aside = scriptDirectory + QStringLiteral(".") + name;
    QFile file(aside);
    if (!file.open(QIODevice::WriteOnly) || file.write(recordingScript() + behaviourLine(behaviour)) < 0) {
        return false;
    }
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    remove(name);
    return QFile::rename(aside, scriptDirectory + name);
}

bool RecordingScripts::installAll()
{
    const QStringList names = allNames();
    return std::all_of(names.cbegin(), names.cend(), [this](const QString& name) { return install(name); });
}

void RecordingScripts::remove(const QString& name)
{
    QFile::remove(scriptDirectory + name);
}

void RecordingScripts::makeNotExecutable(const QString& name)
{
    QFile::setPermissions(scriptDirectory + name, QFile::ReadOwner | QFile::WriteOwner);
}

QList<QStringList> RecordingScripts::runs() const
{
    QFile file(recordFile);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QList<QByteArray> words = file.readAll().split('\0');
    QList<QStringList> result;
    // The last element is the text after the last NUL, which is empty.
    while (words.size() > 1) {
        const int count = words.takeFirst().toInt();
        QStringList run;
        for (int i = 0; i < count && words.size() > 1; ++i) {
            run += QString::fromUtf8(words.takeFirst());
        }
        result += run;
    }
    return result;
}

QStringList RecordingScripts::runLines() const
{
    QStringList lines;
    const QList<QStringList> all = runs();
    for (const QStringList& run : all) {
        lines += run.join(QLatin1Char(' '));
    }
    return lines;
}

QList<QStringList> RecordingScripts::runsOf(const QString& name) const
{
    QList<QStringList> result;
    const QList<QStringList> all = runs();
    for (const QStringList& run : all) {
        if (run.value(0) == name) {
            result += run.mid(1);
        }
    }
    return result;
}

bool RecordingScripts::awaitRuns(int count, std::chrono::milliseconds limit) const
{
    const bool reached =
        QTest::qWaitFor([this, count] { return runs().size() >= count; }, static_cast<int>(limit.count()));
    if (!reached) {
        qWarning().noquote() << "Not" << count << "script runs, but\n "
                             << runLines().join(QStringLiteral("\n  "));
    }
    return reached;
}

void RecordingScripts::clear()
{
    QFile::remove(recordFile);
}
