// SPDX-License-Identifier: MIT
// The panel's consumption while nothing happens: memory, threads, wake-ups, CPU time; and while only frames
// arrive: CPU time of each, a burst, growth and log of an hour's frames. To be run in the sandbox. Options:
// --disk DIRECTORY, --rounds N, --quick, --panel PROGRAM (another build's).
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include "figure.h"
#include "figures.h"
#include "ownfiles.h"
#include "settingsfile.h"
#include "stage.h"

using namespace VarnelBench;

namespace {

constexpr double settleMs = 10000; ///< from the page to what counts as rest
constexpr int watchSeconds = 6;    ///< a multiple of all the panel's timers

void awaitPage(Stage* stage)
{
    stage->setControllerSending(true);
    stage->await("the page", [stage] { return stage->isPageShown(); });
    stage->setControllerSending(false);
}

/// The subjects of `shared`, with files that no other process of the machine shares: other processes would
/// change their share of the memory.
QList<Subject> alone(Stage* stage, OwnFiles* files, const QList<Subject>& shared)
{
    QList<Subject> result;
    for (const Subject& subject : shared) {
        stage->awaitEmptyScreen();
        const Run run(subject);
        awaitPage(stage);
        files->copyFilesOf(run);
        result.append(files->alone(subject));
    }
    return result;
}

void benchMemory(Stage* stage, const QString& program, const QString& disk, int rounds)
{
    OwnFiles files(disk);
    const QList<Subject> subjects =
        alone(stage, &files,
              {stage->tunedFloor(QStringLiteral("web view, tuned")),
               stage->plainFloor(QStringLiteral("web view, plain")), stage->panel(program, 1.05)});
    Figure pss("PSS 10 s after the page", "MiB", subjects);
    Figure uss("USS 10 s after the page", "MiB", subjects);
    Figure threads("threads 10 s after the page", "", subjects);
    uss.withoutTargets();
    threads.withoutTargets();
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < subjects.size(); ++i) {
            stage->awaitEmptyScreen();
            const Run run(subjects.at(i));
            awaitPage(stage);
            stage->serveFor(settleMs);
            const Usage usage = run.usage();
            pss.add(i, static_cast<double>(usage.figures.pss) / 1024);
            uss.add(i, static_cast<double>(usage.figures.uss) / 1024);
            threads.add(i, usage.figures.threads);
        }
    }
    for (const Figure* figure : {&pss, &uss, &threads}) {
        figure->print();
    }
}

/// The panel's situation during a measurement.
struct Rest
{
    const char* name;
    bool connected;
    const char* blankAfterMs; ///< the screen saver's interval
};

constexpr Rest rests[] = {
    {"waiting", false, "600000"},
    {"connected, a frame a second", true, "600000"},
    {"blanked, a frame a second", true, "1000"},
};

/// Two blink timers and the poll of the front interface: 250 ms, 1000 ms, 2000 ms.
constexpr double timersPerSecond = 4 + 1 + 0.5;

void benchIdle(Stage* stage, const QString& program, int rounds, const Rest& rest)
{
    const double own = timersPerSecond + (rest.connected ? 1 : 0);
    const std::string name = rest.name;
    std::vector<Series> wakeUps{{rest.connected ? "documented timers and frames" : "documented timers"},
                                {"panel", {}, (own + 1) / own}};
    std::vector<Series> cpu{{"panel"}};
    if (!SettingsFile().set("UI/ScreenSaverInterval", rest.blankAfterMs).write()) {
        qFatal("cannot write the settings");
    }
    stage->awaitEmptyScreen();
    const Run run(stage->panel(program, 0));
    if (rest.connected) {
        awaitPage(stage);
    }
    stage->serveFor(settleMs);
    for (int round = 0; round < rounds; ++round) {
        const Usage before = run.usage();
        const double start = nowMs();
        for (int second = 1; second <= watchSeconds; ++second) {
            if (rest.connected) {
                stage->sendFrame();
            }
            stage->serveFor(start + second * 1000.0 - nowMs());
        }
        const Usage after = run.usage();
        const double seconds = (nowMs() - start) / 1000;
        wakeUps[0].values.push_back(own);
        wakeUps[1].values.push_back(
            static_cast<double>(after.figures.voluntarySwitches - before.figures.voluntarySwitches) /
            seconds);
        cpu[0].values.push_back((after.cpuMs - before.cpuMs) / seconds);
    }
    printFigure("wake-ups when idle: " + name, "a second", wakeUps);
    printFigure("CPU time when idle: " + name, "ms a second", cpu, Floor::None);
    SettingsFile::remove();
}

/// Datagrams that wait in, and that were lost before, the socket of the panel's port.
struct Queue
{
    bool empty = true;
    qint64 lost = 0;
};

Queue queueOf(quint16 port)
{
    Queue queue;
    QFile file(QStringLiteral("/proc/net/udp"));
    const QByteArray suffix = ':' + QByteArray::number(port, 16).toUpper();
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read /proc/net/udp");
    }
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words.value(1).endsWith(suffix)) {
            queue = {words.value(4).endsWith("00000000"), words.constLast().toLongLong()};
        }
    }
    return queue;
}

constexpr quint16 port = 9876;

QList<Subject> receivers(const Stage& stage, const QString& program)
{
    Subject floor = stage.plainFloor(QStringLiteral("QUdpSocket, table CRC"));
    floor.command = QStringList{QStringLiteral(VARNEL_PROGRAM_DIR "/floor-frames"), QString::number(port)};
    Subject inWindow = floor;
    inWindow.name = QStringLiteral("the same with a window");
    inWindow.command += QStringLiteral("--window");
    return {floor, inWindow, stage.panel(program, 0)};
}

void awaitReceiver(Stage* stage, const Subject& subject)
{
    if (subject.name == QLatin1String("panel")) {
        awaitPage(stage);
    } else {
        stage->await("the floor", [] { return isPortBound(port); });
    }
    stage->serveFor(1000);
}

void benchPaced(Stage* stage, const QString& program, int rounds)
{
    constexpr int frames = 500;
    const QList<Subject> subjects = receivers(*stage, program);
    Figure cpu("frames one by one, 500 a second", "us of CPU a frame", subjects);
    Figure burst("burst of 1000 frames: until all are read", "ms", subjects);
    Figure lost("burst of 1000 frames: lost", "frames", subjects);
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < subjects.size(); ++i) {
            stage->awaitEmptyScreen();
            const Run run(subjects.at(i));
            awaitReceiver(stage, subjects.at(i));
            const double before = run.cpuMs();
            for (int n = 0; n < frames; ++n) {
                stage->sendFrame();
                stage->serveFor(2);
            }
            stage->await("the frames", [] { return queueOf(port).empty; });
            cpu.add(i, (run.cpuMs() - before) * 1000 / frames);

            const qint64 lostBefore = queueOf(port).lost;
            const double start = nowMs();
            for (int n = 0; n < 1000; ++n) {
                stage->sendFrame();
            }
            burst.add(i, stage->await("the burst", [] { return queueOf(port).empty; }) - start);
            lost.add(i, static_cast<double>(queueOf(port).lost - lostBefore));
        }
    }
    cpu.print();
    burst.print();
    lost.print(Floor::None);
}

/// An hour of a controller that sends a frame a second, in less time, again and again.
void benchGrowth(Stage* stage, const QString& program, int rounds)
{
    constexpr int hour = 3600;
    QTemporaryDir directory;
    const QString log = directory.filePath(QStringLiteral("log"));
    stage->awaitEmptyScreen();
    const Run run(stage->panel(program, 0), log);
    awaitPage(stage);
    stage->serveFor(settleMs);
    std::vector<Series> growth{{"panel"}};
    std::vector<Series> logged{{"panel"}};
    for (int round = 0; round < rounds; ++round) {
        const qint64 before = run.usage().figures.uss;
        const qint64 logBefore = QFileInfo(log).size();
        for (int n = 0; n < hour; ++n) {
            stage->sendFrame();
            stage->serveFor(2);
        }
        growth[0].values.push_back(static_cast<double>(run.usage().figures.uss - before));
        logged[0].values.push_back(static_cast<double>(QFileInfo(log).size() - logBefore));
    }
    printFigure("growth over an hour's frames", "KiB of USS", growth, Floor::None);
    printFigure("log of an hour's frames", "octets", logged, Floor::None);
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QString program = otherPanel(QCoreApplication::arguments());
    const int rounds = roundsFrom(argc, argv, 9);
    Stage stage;
    benchMemory(&stage, program, diskDirectory(QCoreApplication::arguments()), rounds);
    for (const Rest& rest : rests) {
        benchIdle(&stage, program, rounds, rest);
    }
    benchPaced(&stage, program, rounds);
    benchGrowth(&stage, program, rounds);
    return 0;
}
