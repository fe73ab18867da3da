// SPDX-License-Identifier: MIT
// The whole program against floor programs: from exec to the page on the screen, from the first frame to the
// page, memory, wake-ups while frames arrive, a burst. To be run in the sandbox. Options: --rounds N,
// --quick.
#include <QCoreApplication>

#include "figures.h"
#include "stage.h"

using namespace VarnelBench;

namespace {

const QStringList panel{QStringLiteral("varnel-browser")};

void benchStart(Stage* stage, int rounds)
{
    std::vector<Series> time{{"web view"}, {"panel", 1.10}};
    std::vector<Series> cpu{{"web view"}, {"panel"}};
    const QStringList commands[] = {Stage::webView(), panel};
    for (int round = -1; round < rounds; ++round) {
        for (std::size_t i = 0; i < time.size(); ++i) {
            const double before = nowMs();
            const auto program = stage->start(commands[i]);
            const double shown = stage->awaitPageWhileSending();
            const double used = cpuMs(*program);
            if (round >= 0) {
                time[i].values.push_back(shown - before);
                cpu[i].values.push_back(used);
            }
        }
    }
    printFigure("exec to page painted", "ms", time);
    printFigure("CPU time from exec to page painted", "ms", cpu);
}

void awaitPort(Stage* stage)
{
    stage->await("the port", [] { return socketQueue().has_value(); });
}

void benchFirstFrame(Stage* stage, int rounds)
{
    constexpr double waitMs = 3000;
    std::vector<Series> time{{"web view, warm"}, {"panel", 1.3}};
    const QStringList commands[] = {Stage::webView() + QStringList(QString::number(panelPort)), panel};
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < time.size(); ++i) {
            const auto program = stage->start(commands[i]);
            awaitPort(stage);
            stage->serveFor(waitMs);
            const double start = nowMs();
            stage->sendFrame();
            time[i].values.push_back(stage->awaitPage() - start);
        }
    }
    printFigure("first frame to page painted", "ms", time);
}

/// Memory as if nothing else on the machine used the same libraries: shared pages count in full.
void benchMemory(Stage* stage, int rounds)
{
    constexpr double settleMs = 10000;
    std::vector<Series> memory{{"web view"}, {"panel", 1.05}};
    const QStringList commands[] = {Stage::webView(), panel};
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < memory.size(); ++i) {
            const auto program = stage->start(commands[i]);
            stage->awaitPageWhileSending();
            stage->serveFor(settleMs);
            memory[i].values.push_back(static_cast<double>(processFigures(program->pid()).rss) / 1024);
        }
    }
    printFigure("memory 10 s after the page", "MiB", memory);
}

void benchWakeUps(Stage* stage, int rounds)
{
    constexpr int seconds = 6; // a multiple of all the panel's timers
    // Two blink timers and the poll of the front interface (250 ms, 1000 ms, 2000 ms), and a frame.
    constexpr double documented = 4 + 1 + 0.5 + 1;
    std::vector<Series> wakeUps{{"documented timers and frames"}, {"panel", 1.15}};
    const auto program = stage->start(panel);
    stage->awaitPageWhileSending();
    stage->serveFor(10000);
    for (int round = 0; round < rounds; ++round) {
        const qint64 before = processFigures(program->pid()).voluntarySwitches;
        for (int second = 0; second < seconds; ++second) {
            stage->sendFrame();
            stage->serveFor(1000);
        }
        const qint64 after = processFigures(program->pid()).voluntarySwitches;
        wakeUps[0].values.push_back(documented);
        wakeUps[1].values.push_back(static_cast<double>(after - before) / seconds);
    }
    printFigure("wake-ups with a frame a second", "a second", wakeUps);
}

void benchBurst(Stage* stage, int rounds)
{
    std::vector<Series> time{{"`QUdpSocket`, table CRC"}, {"panel"}};
    std::vector<Series> read = time;
    const QStringList commands[] = {{QStringLiteral("floor-frames"), QString::number(panelPort)}, panel};
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < time.size(); ++i) {
            const auto program = stage->start(commands[i]);
            awaitPort(stage);
            stage->sendFrame();
            stage->serveFor(2000);
            const double start = nowMs();
            for (int n = 0; n < 1000; ++n) {
                stage->sendFrame();
            }
            const double end = stage->await("the burst", [] { return socketQueue()->empty; });
            time[i].values.push_back(end - start);
            read[i].values.push_back(static_cast<double>(1000 - socketQueue()->lost));
        }
    }
    printFigure("burst of 1000 frames: until all are read", "ms", time);
    printFigure("burst of 1000 frames: read", "frames", read);
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv);
    Stage stage;
    benchStart(&stage, rounds);
    benchFirstFrame(&stage, rounds);
    benchMemory(&stage, qMin(rounds, 9));
    benchWakeUps(&stage, qMin(rounds, 9));
    benchBurst(&stage, qMin(rounds, 9));
    return 0;
}
