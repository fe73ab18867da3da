// SPDX-License-Identifier: MIT
// From exec to the page on the screen, against a bare web view; and from the first frame to the page. To be
// run in the sandbox. Options: --disk DIRECTORY, --rounds N, --quick, --panel PROGRAM (another
// build's).
#include <QCoreApplication>

#include "figure.h"
#include "figures.h"
#include "ownfiles.h"
#include "stage.h"

using namespace VarnelBench;

namespace {

/// The state of the files at a start.
struct Cache
{
    std::string name;
    std::function<void()> prepare;
};

void benchStart(Stage* stage, const QList<Subject>& subjects, const Cache& cache, int rounds)
{
    Figure time("exec to page painted, " + cache.name, "ms", subjects);
    Figure cpu("CPU time from exec to page painted, " + cache.name, "ms", subjects);
    Figure octets("read from disk until the page is painted, " + cache.name, "MiB", subjects);
    cpu.withoutTargets();
    octets.withoutTargets();
    for (int round = -1; round < rounds; ++round) {
        for (int i = 0; i < subjects.size(); ++i) {
            stage->awaitEmptyScreen();
            cache.prepare();
            stage->setControllerSending(true);
            const double start = nowMs();
            const Run run(subjects.at(i));
            const double shown = stage->await("the page", [stage] { return stage->isPageShown(); });
            const Usage used = run.usage();
            stage->setControllerSending(false);
            if (round >= 0) {
                time.add(i, shown - start);
                cpu.add(i, used.cpuMs);
                octets.add(i, static_cast<double>(used.figures.read) / 1024);
            }
        }
    }
    time.print();
    cpu.print();
    octets.print(Floor::None);
}

void benchWaiting(Stage* stage, const Subject& panel, const Cache& cache, int rounds)
{
    QList<Subject> subjects{panel};
    subjects.first().target = 0;
    Figure bound("exec to UDP port bound, " + cache.name, "ms", subjects);
    Figure text("exec to waiting text, " + cache.name, "ms", subjects);
    Figure cpu("CPU time from exec to waiting text, " + cache.name, "ms", subjects);
    for (int round = -1; round < rounds; ++round) {
        stage->awaitEmptyScreen();
        cache.prepare();
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

/// Once with all files in the kernel's cache, once with none.
void benchStarts(Stage* stage, const QString& program, const QString& disk, int rounds)
{
    const Cache warm{"files cached", [] {}};
    const QList<Subject> subjects{stage->tunedFloor(QStringLiteral("web view, tuned")),
                                  stage->plainFloor(QStringLiteral("web view, plain")),
                                  stage->panel(program, 1.10)};
    benchStart(stage, subjects, warm, rounds);
    benchWaiting(stage, subjects.constLast(), warm, rounds);

    OwnFiles files(disk);
    QList<Subject> alone;
    for (const Subject& subject : subjects) {
        stage->awaitEmptyScreen();
        stage->setControllerSending(true);
        const Run run(subject);
        stage->await("the page", [stage] { return stage->isPageShown(); });
        stage->setControllerSending(false);
        files.copyFilesOf(run);
        alone.append(files.alone(subject));
        alone.last().target = 0; // the wanted ratio is that of cached files
    }
    const Cache cold{"files not cached", [&files] { files.dropFromCache(); }};
    benchStart(stage, alone, cold, rounds);
    benchWaiting(stage, alone.constLast(), cold, rounds);
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
    benchStarts(&stage, program, diskDirectory(QCoreApplication::arguments()), rounds);
    benchFirstFrame(&stage, program, rounds);
    return 0;
}
