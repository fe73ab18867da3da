// SPDX-License-Identifier: MIT
// From exec to the page on the screen, against a bare web view; and from the first frame to the page. To be
// run in the sandbox. Options: --rounds N, --quick, --panel PROGRAM (another build's).
#include <QCoreApplication>

#include "figure.h"
#include "figures.h"
#include "stage.h"

using namespace VarnelBench;

namespace {

void benchStart(Stage* stage, const QString& program, int rounds)
{
    const QList<Subject> subjects{stage->tunedFloor(QStringLiteral("web view, tuned")),
                                  stage->plainFloor(QStringLiteral("web view, plain")),
                                  stage->panel(program, 1.10)};
    Figure time("exec to page painted, files cached", "ms", subjects);
    Figure cpu("CPU time from exec to page painted", "ms", subjects);
    cpu.withoutTargets();
    for (int round = -1; round < rounds; ++round) {
        for (int i = 0; i < subjects.size(); ++i) {
            stage->awaitEmptyScreen();
            stage->setControllerSending(true);
            const double start = nowMs();
            const Run run(subjects.at(i));
            const double shown = stage->await("the page", [stage] { return stage->isPageShown(); });
            const double used = run.cpuMs();
            stage->setControllerSending(false);
            if (round >= 0) {
                time.add(i, shown - start);
                cpu.add(i, used);
            }
        }
    }
    time.print();
    cpu.print();
}

void benchWaiting(Stage* stage, const QString& program, int rounds)
{
    const QList<Subject> subjects{stage->panel(program, 0)};
    Figure bound("exec to UDP port bound", "ms", subjects);
    Figure text("exec to waiting text", "ms", subjects);
    Figure cpu("CPU time from exec to waiting text", "ms", subjects);
    for (int round = -1; round < rounds; ++round) {
        stage->awaitEmptyScreen();
        const double start = nowMs();
        const Run run(subjects.first());
        const double atBound = stage->await("the port", [] { return isPortBound(9876); });
        const double atText = stage->await("the text", [stage] { return stage->isTextShown(); });
        if (round >= 0) {
            bound.add(0, atBound - start);
            text.add(0, atText - start);
            cpu.add(0, run.cpuMs());
        }
    }
    for (const Figure* figure : {&bound, &text, &cpu}) {
        figure->print(Floor::None);
    }
}

void benchFirstFrame(Stage* stage, const QString& program, int rounds)
{
    constexpr double waitMs = 3000;
    const QString port = QStringLiteral("9876");
    const QList<Subject> subjects{
        stage->tunedFloor(QStringLiteral("web view, warm"), {QStringLiteral("--warm"), port}),
        stage->tunedFloor(QStringLiteral("web view, cold"), {QStringLiteral("--cold"), port}),
        stage->panel(program, 1.3)};
    Figure request("first frame to request", "ms", subjects);
    request.withoutTargets();
    Figure shown("first frame to page painted", "ms", subjects);
    Figure cpu("CPU time from first frame to page painted", "ms", subjects);
    cpu.withoutTargets();
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < subjects.size(); ++i) {
            stage->awaitEmptyScreen();
            const Run run(subjects.at(i));
            stage->await("the port", [] { return isPortBound(9876); });
            stage->serveFor(waitMs);
            const int before = stage->pageRequests();
            const double used = run.cpuMs();
            const double start = nowMs();
            stage->sendFrame();
            request.add(i,
                        stage->await("the request", [&] { return stage->pageRequests() > before; }) - start);
            shown.add(i, stage->await("the page", [stage] { return stage->isPageShown(); }) - start);
            cpu.add(i, run.cpuMs() - used);
        }
    }
    for (const Figure* figure : {&request, &shown, &cpu}) {
        figure->print();
    }
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QString program = otherPanel(QCoreApplication::arguments());
    const int rounds = roundsFrom(argc, argv);
    Stage stage;
    benchStart(&stage, program, rounds);
    benchWaiting(&stage, program, rounds);
    benchFirstFrame(&stage, program, rounds);
    return 0;
}
