// SPDX-License-Identifier: MIT
// The clock steps by a day, as it may when the panel first hears of the time. Only the panel and its scripts
// see it: libfaketime moves CLOCK_REALTIME for them, and leaves CLOCK_MONOTONIC alone, as a real step does.

#include <cmath>

#include <QDateTime>
#include <QFile>
#include <QTest>

#include "fault.h"

namespace {

const QString offsetFile = "/tmp/clock-offset"_s;
constexpr int day = 86400;

bool setOffset(int seconds)
{
    // Moved into place: a reader never sees half of it.
    QFile file(offsetFile + ".new"_s);
    if (!file.open(QIODevice::WriteOnly) || file.write(seconds < 0 ? "" : "+") < 0 ||
        file.write(QByteArray::number(seconds)) < 0) {
        return false;
    }
    file.close();
    QFile::remove(offsetFile);
    return file.rename(offsetFile);
}

bool useClock(FaultBench& bench)
{
    bench.panel.setEnvironment("LD_PRELOAD"_s, "/usr/$LIB/faketime/libfaketimeMT.so.1"_s);
    bench.panel.setEnvironment("FAKETIME_TIMESTAMP_FILE"_s, offsetFile);
    bench.panel.setEnvironment("FAKETIME_NO_CACHE"_s, "1"_s);
    bench.panel.setEnvironment("FAKETIME_DONT_FAKE_MONOTONIC"_s, "1"_s);
    return setOffset(0);
}

/// The page's clock says so, its timers go on at their pace, and so do those of the panel: the LEDs blink and
/// the supervision counts.
bool timersGoOn(FaultBench& bench, int offset)
{
    const auto error = [&] {
        return std::llabs(bench.pageClock() - QDateTime::currentMSecsSinceEpoch() - offset * 1000LL);
    };
    if (!QTest::qWaitFor([&] { return error() < 10000; }, int(patience.count()))) {
        qWarning() << "The page's clock is" << error() << "ms off";
        return false;
    }
    const int before = bench.ticks();
    QTest::qWait(5000);
    const int asked = bench.ticks() - before; // ten in five seconds, less what six loads of the page take
    qInfo("%d questions of the page in 5 s", asked);
    if (asked < 4 || asked > 11 || bench.shown() != Shown::ControllerPage) {
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    bench.frames.setRate(0);
    const bool lost = bench.awaitShown(Shown::ErrorPage);
    const qint64 elapsed = timer.elapsed();
    WriteRecorder red({StandInSys::valueFile(StandInSys::red)});
    const bool blinks = red.awaitWrites(StandInSys::valueFile(StandInSys::red), 4);
    bench.frames.setRate(FaultBench::usualRate);
    qInfo("loss after %lld ms", elapsed);
    return lost && blinks && elapsed > 2000 && elapsed < 6000 && bench.awaitShown(Shown::ControllerPage);
}

Fault step(const char* name, int offset)
{
    return {name,
            "nothing: page stays, its timers go on",
            "nothing",
            "",
            [offset](FaultBench&) { return setOffset(offset); },
            [offset](FaultBench& bench) { return timersGoOn(bench, offset); },
            [](FaultBench&) { return setOffset(0); },
            useClock};
}

} // namespace

Faults clockFaults()
{
    return {step("clock a day forward", day), step("clock a day back", -day)};
}
