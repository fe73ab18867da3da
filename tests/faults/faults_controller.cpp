// SPDX-License-Identifier: MIT
// Faults of the controller's frames.

#include <QTest>

#include "fault.h"

namespace {

constexpr int floodRate = 10000;
constexpr quint32 floodSize = 5 * floodRate;
constexpr std::chrono::milliseconds touchLimit{3000};

constexpr auto lossLine = "^No packet received within the  3 s window, unregister";
constexpr auto strangerLine = R"(^Packet received from an unknown sender \( "192\.168\.7\.3")";

bool silence(FaultBench& bench)
{
    bench.frames.setRate(0);
    return true;
}

bool speak(FaultBench& bench)
{
    bench.frames.setRate(FaultBench::usualRate);
    return true;
}

bool errorPage(FaultBench& bench)
{
    return bench.awaitShown(Shown::ErrorPage);
}

bool errorPageAndBlinking(FaultBench& bench)
{
    if (!errorPage(bench)) {
        return false;
    }
    const QString red = StandInSys::valueFile(StandInSys::red);
    const WriteRecorder recorder({red});
    QElapsedTimer timer;
    timer.start();
    return recorder.awaitWrites(red, 8) && timer.elapsed() < 6000; // slow blinking would take 8 s
}

/// The page is shown and continues to work.
bool pageGoesOn(FaultBench& bench)
{
    const int before = bench.ticks();
    return QTest::qWaitFor([&] { return bench.ticks() > before + 2; }, int(patience.count())) &&
           bench.awaitShown(Shown::ControllerPage);
}

/// The screen answers a touch while the flood lasts.
bool touchIsAnswered(FaultBench& bench)
{
    QElapsedTimer timer;
    timer.start();
    const bool answered = bench.showsTouch(touchLimit);
    qInfo("touch answered after %lld ms", timer.elapsed());
    return answered && bench.awaitShown(Shown::ControllerPage);
}

bool swapControllers(FaultBench& bench)
{
    bench.frames.setRate(0);
    bench.otherFrames.setRate(FaultBench::usualRate);
    return true;
}

bool swapBack(FaultBench& bench)
{
    bench.otherFrames.setRate(0);
    return speak(bench);
}

/// Lets `source` flood the panel with some seconds' worth of datagrams, and leaves it at that. How quick it
/// is where the machine has other things to do as well is in the log.
bool flood(FrameSource& source)
{
    const auto count = [&source] { return source.sent() + source.refused(); };
    const quint32 before = count();
    QElapsedTimer timer;
    timer.start();
    source.setRate(floodRate);
    const bool sent = QTest::qWaitFor([&] { return count() - before >= floodSize; }, int(patience.count()));
    qInfo("%.0f datagrams a second", (count() - before) * 1000.0 / double(timer.elapsed()));
    return sent;
}

Fault reboot()
{
    return {"controller rebooted",
            "error page until it is back",
            "nothing of the panel; the page begins anew",
            lossLine,
            [](FaultBench& bench) {
                bench.server.close();
                return silence(bench);
            },
            errorPage,
            [](FaultBench& bench) {
                bench.frames.restartNumbers();
                return bench.server.listen() && speak(bench);
            }};
}

Fault quickReboot()
{
    return {"sequence numbers restart",
            "nothing: page stays",
            "nothing",
            "^Back in the sequence, probable reboot of the RxM",
            [](FaultBench& bench) {
                bench.frames.restartNumbers();
                return true;
            },
            pageGoesOn,
            [](FaultBench&) { return true; }};
}

Fault strangersFlood()
{
    return {"flood of a stranger's frames",
            "page stays",
            "frames of the controller, while it lasts",
            strangerLine,
            [](FaultBench& bench) { return flood(bench.otherFrames); },
            touchIsAnswered,
            [](FaultBench& bench) {
                bench.otherFrames.setRate(0);
                return true;
            }};
}

Fault controllersFlood()
{
    Fault fault{"flood of the controller's frames",
                "page stays, answers late",
                "frames beyond what the scripts can follow",
                "",
                [](FaultBench& bench) { return flood(bench.frames); },
                touchIsAnswered,
                speak};
    // The datagrams in the socket are handled first, with a script for each.
    fault.recoveryLimit = std::chrono::seconds(60);
    return fault;
}

Fault garbageFlood()
{
    // One source for each panel: it lives as long as the row's bench does.
    const auto source = std::make_shared<std::unique_ptr<FrameSource>>();
    return {"flood of garbage",
            "page stays",
            "frames of the controller, while it lasts",
            "Drop frame$",
            [source](FaultBench&) {
                *source = std::make_unique<FrameSource>("192.168.7.2"_s, &FrameSource::garbage);
                return flood(**source);
            },
            touchIsAnswered,
            [source](FaultBench&) {
                source->reset();
                return true;
            }};
}

} // namespace

Faults controllerFaults()
{
    return {
        {"controller silent", "error page, LEDs blink fast", "nothing; the page begins anew", lossLine,
         silence, errorPageAndBlinking, speak},
        reboot(),
        quickReboot(),
        {"controller replaced", "error page, then the other controller's page",
         "frames of the new one until the old one counts as lost", lossLine, swapControllers,
         [](FaultBench& bench) { return bench.awaitShown(Shown::OtherControllersPage); }, swapBack},
        {"two controllers at once", "nothing: the first one's page stays", "the second one's frames",
         strangerLine,
         [](FaultBench& bench) {
             bench.otherFrames.setRate(FaultBench::usualRate);
             return true;
         },
         pageGoesOn,
         [](FaultBench& bench) {
             bench.otherFrames.setRate(0);
             return true;
         }},
        garbageFlood(),
        strangersFlood(),
        controllersFlood(),
    };
}
