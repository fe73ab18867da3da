// SPDX-License-Identifier: MIT
// Faults of the device's scripts.

#include <QDir>
#include <QFile>
#include <QTest>

#include "fault.h"

namespace {

const QString registration = "r7m.sh"_s;
const QString update = "mbserverupdate.sh"_s;

bool installAgain(FaultBench& bench)
{
    return bench.installScripts();
}

bool lose(FaultBench& bench)
{
    bench.frames.setRate(0);
    return bench.panel.log().await("Remove R7M"_s) && bench.awaitShown(Shown::ErrorPage);
}

bool find(FaultBench& bench)
{
    bench.frames.setRate(FaultBench::usualRate);
    return bench.panel.log().await("Add R7M"_s) && bench.awaitShown(Shown::ControllerPage);
}

/// Lets the link be lost and come back: the registration runs twice.
bool loseAndFind(FaultBench& bench)
{
    return lose(bench) && find(bench);
}

/// The same, and what a PLC reads stays what it was.
bool registersStandStill(FaultBench& bench)
{
    if (!lose(bench)) {
        return false;
    }
    const quint32 before = bench.plcValue();
    const int asked = bench.ticks();
    return before > 0 && find(bench) &&
           QTest::qWaitFor([&] { return bench.ticks() > asked + 2; }, int(patience.count())) &&
           bench.plcValue() == before;
}

bool writeScript(const QString& name, const QByteArray& text)
{
    const QString path = "/usr/local/bin/"_s + name;
    const QString aside = path + ".new"_s;
    QFile file(aside);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + text + "\n") < 0) {
        return false;
    }
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::remove(path);
    return QFile::rename(aside, path);
}

Fault::Step replaceScripts(const QByteArray& text)
{
    return [text](FaultBench&) { return writeScript(registration, text) && writeScript(update, text); };
}

/// The state letter of every child of the panel.
QByteArray childStates(qint64 panel)
{
    QByteArray states;
    const QStringList numbers = QDir("/proc"_s).entryList({"[0-9]*"_s}, QDir::Dirs);
    for (const QString& number : numbers) {
        QFile file("/proc/%1/stat"_s.arg(number));
        if (file.open(QIODevice::ReadOnly)) {
            // The name may hold anything; what follows it does not.
            const QByteArray line = file.readAll();
            const QList<QByteArray> words = line.mid(line.lastIndexOf(')') + 2).split(' ');
            if (words.value(1).toLongLong() == panel) {
                states += words.value(0);
            }
        }
    }
    return states;
}

/// While a script hangs the panel does nothing else.
bool isHeldUp(FaultBench& bench)
{
    return QTest::qWaitFor([&] { return childStates(bench.panel.pid()).contains('S'); },
                           int(patience.count())) &&
           !bench.showsTouch(std::chrono::seconds(5));
}

bool leavesNoZombies(FaultBench& bench)
{
    const bool found = loseAndFind(bench);
    const QByteArray states = childStates(bench.panel.pid());
    return found && !states.contains('Z') && bench.showsTouch(patience);
}

/// Ends what the scripts have left behind.
bool endChildren(FaultBench& bench)
{
    std::ignore = Program::runTool({"pkill"_s, "--full"_s, "sleep 4321"_s});
    return installAgain(bench);
}

} // namespace

Faults scriptFaults()
{
    Faults faults{
        {"scripts missing", "nothing: page comes and goes with the link",
         "registration; registers keep their last values",
         R"(^Script ' "/usr/local/bin/r7m\.sh" ' not found, do nothing$)",
         [](FaultBench& bench) {
             bench.scripts.remove(registration);
             bench.scripts.remove(update);
             return true;
         },
         registersStandStill, installAgain},
        {"scripts fail", "nothing: page comes and goes with the link",
         "registration; registers keep their last values", "", replaceScripts("exit 3"), loseAndFind,
         installAgain},
        {"scripts leave children behind", "nothing: page comes and goes with the link",
         "nothing of the panel; the children stay", "", replaceScripts("sleep 4321 &"), leavesNoZombies,
         endChildren},
        {"script hangs for 30 s", "screen stands still, touches wait", "nothing; touches are late", "",
         replaceScripts("sleep infinity"), isHeldUp, installAgain},
    };
    faults.back().recoveryLimit = std::chrono::seconds(50);
    faults.back().endLimit = std::chrono::seconds(32);
    return faults;
}
