// SPDX-License-Identifier: MIT
// Faults of the controller's frames, of its web server, and of names, addresses and the cable.

#include "fault.h"
#include "files.h"
#include "processfigures.h"

namespace {

const QByteArray page = "/index.html";

constexpr auto lossLine = "^No packet received within the  3 s window, unregister";
constexpr auto strangerLine = R"(^Packet received from an unknown sender \( "192\.168\.7\.3")";
constexpr auto httpError = "^HTTP ERROR$";
constexpr auto pageStartsAgain = "nothing; the page starts again";
constexpr auto errorPageOnce = "error page until the next try";

bool errorPageAndBlinking(FaultBench& bench)
{
    if (!bench.awaitErrorPage()) {
        return false;
    }
    const QString red = StandInSys::valueFile(StandInSys::red);
    const WriteRecorder recorder({red});
    QElapsedTimer timer;
    timer.start();
    return recorder.awaitWrites(red, 8) && timer.elapsed() < 6000; // slow blinking would take 8 s
}

/// The screen answers a touch while the flood lasts.
bool touchIsAnswered(FaultBench& bench)
{
    QElapsedTimer timer;
    timer.start();
    const bool answered = bench.showsTouch(std::chrono::seconds(3));
    qInfo("touch answered after %lld ms", timer.elapsed());
    return answered && bench.awaitShown(Shown::ControllerPage);
}

/// Lets `source` flood the panel with some seconds' worth of datagrams, and leaves it at that. How quick it
/// is where the machine has other things to do as well is in the log.
bool flood(FrameSource& source)
{
    constexpr int rate = 10000;
    const auto count = [&source] { return source.sent() + source.refused(); };
    const quint32 before = count();
    QElapsedTimer timer;
    timer.start();
    source.setRate(rate);
    const bool sent = awaitTrue([&] { return count() - before >= 5 * rate; });
    qInfo("%.0f datagrams a second", (count() - before) * 1000.0 / double(timer.elapsed()));
    return sent;
}

void closeServer(FaultBench& bench)
{
    bench.server.close();
}

bool listenAgain(FaultBench& bench)
{
    return bench.server.listen();
}

/// The server ends, which breaks off what is open, and starts again.
bool restartServer(FaultBench& bench)
{
    bench.server.close();
    bench.serveUsual();
    return bench.server.listen();
}

/// The error page is there, and the panel has tried twice in vain.
bool errorPageAfterTwoTries(FaultBench& bench)
{
    const QString tick = "WebView::handleRetryTimer()"_s;
    return bench.awaitErrorPage() && bench.panel.log().await({tick, tick});
}

/// The error page is there, and the panel has tried once in vain: from then on it waits for the link.
bool errorPageForGood(FaultBench& bench)
{
    return bench.awaitErrorPage() && bench.panel.log().await("onDefault"_s);
}

void acceptInSilence(FaultBench& bench)
{
    bench.server.answer(page, {}, AfterAnswer::KeepOpen);
    bench.server.answer("/tick", {}, AfterAnswer::KeepOpen);
}

/// With both keys that let the panel recover by itself. A request without an answer is soon tried again.
void askForRecovery(FaultBench& bench)
{
    bench.settings.set("Network/PageTimeout", "2").set("Network/ProbeAgain", "true");
}

/// Frames come, and the page is asked for, while its server accepts in silence.
bool beginInSilence(FaultBench& bench)
{
    acceptInSilence(bench);
    return bench.loseLink();
}

Step askInVain(Shown shown)
{
    return [shown](FaultBench& bench) {
        const int before = bench.server.count(page);
        bench.speak();
        return bench.server.awaitCount(page, before + 1) && bench.awaitShown(shown);
    };
}

/// Lets the controller be silent for as long as when it restarts.
bool loseLinkForAWhile(FaultBench& bench)
{
    const bool lost = bench.loseLink();
    bench.speak();
    return lost;
}

/// Holds that the panel does not come back by itself first.
bool tryInVainAndLoseLink(FaultBench& bench)
{
    return bench.panel.log().await({"onDefault"_s, "onDefault"_s}) && bench.shown() == Shown::ErrorPage &&
           loseLinkForAWhile(bench);
}

Step answerEverything(const QByteArray& status)
{
    return [status](FaultBench& bench) {
        bench.server.refuse(page, status);
        bench.server.refuse("/tick", status);
    };
}

/// The last request of the page is never answered; a touch is, as the page needs no server for it.
bool standsStill(FaultBench& bench)
{
    return bench.awaitTicks(1) && bench.showsTouch() && bench.awaitShown(Shown::ControllerPage);
}

/// The page loads itself again and never gets to its end: what has come is shown as soon as the engine finds
/// the time, and never the error page.
bool endlessPage(FaultBench& bench)
{
    const qint64 before = processFigures(bench.panel.pid()).rss;
    const int loads = bench.server.count(page);
    const bool asked = bench.server.awaitCount(page, loads + 1);
    QTest::qWait(4000);
    qInfo("memory grew by %lld KiB", processFigures(bench.panel.pid()).rss - before);
    return asked && bench.shown() != Shown::ErrorPage;
}

Step run(const char* commandLine)
{
    return [commandLine](FaultBench&) { return Program::runTool(QString::fromLatin1(commandLine)); };
}

/// Makes the interface as it was.
bool plugInterfaceIn(FaultBench& /*bench*/)
{
    const QString address = "ip address add 192.168.7.%1/24 broadcast 192.168.7.255 dev eth1"_s;
    const QStringList commands{"ip link add eth1 type veth peer name cable"_s,
                               address.arg(1),
                               address.arg(2),
                               address.arg(3),
                               "ip link set cable up"_s,
                               "ip link set eth1 up"_s};
    return std::all_of(commands.cbegin(), commands.cend(),
                       [](const QString& command) { return Program::runTool(command); });
}

void leaveForUnknownName(FaultBench& bench)
{
    bench.sendPageTo("http://controller.invalid/");
}

/// The panel asks a name server that says nothing.
bool installNameServer(FaultBench& bench)
{
    bench.nameServer = std::make_unique<QUdpSocket>();
    writeFile("/tmp/resolv.conf"_s, "nameserver 192.168.7.3\n");
    return bench.nameServer->bind(QHostAddress("192.168.7.3"_s), 53) &&
           Program::runTool("mount --bind /tmp/resolv.conf /etc/resolv.conf"_s);
}

bool asksInVain(FaultBench& bench)
{
    return awaitTrue([&] { return bench.nameServer->hasPendingDatagrams(); }) &&
           bench.awaitShown(Shown::ErrorPage, std::chrono::seconds(40));
}

bool removeNameServer(FaultBench& bench)
{
    bench.nameServer.reset();
    bench.serveUsual();
    return Program::runTool("umount /etc/resolv.conf"_s);
}

} // namespace

Faults controllerFaults()
{
    Faults faults{
        {"controller silent", "error page, LEDs blink fast", "nothing; the page starts again", lossLine,
         &FaultBench::silence, errorPageAndBlinking, &FaultBench::speak},
        {"controller rebooted", "error page until it is back", "nothing of the panel; the page starts again",
         lossLine,
         [](FaultBench& bench) {
             bench.server.close();
             bench.silence();
         },
         &FaultBench::awaitErrorPage,
         [](FaultBench& bench) {
             bench.frames.restartNumbers();
             bench.speak();
             return bench.server.listen();
         }},
        {"sequence numbers restart", "nothing: page stays", "nothing",
         "^Back in the sequence, probable reboot of the RxM",
         [](FaultBench& bench) { bench.frames.restartNumbers(); }, &FaultBench::pageGoesOn, Step()},
        {"controller replaced", "error page, then the other controller's page",
         "frames of the new one until the old one counts as lost", lossLine,
         [](FaultBench& bench) {
             bench.silence();
             bench.otherFrames.setRate(FaultBench::usualRate);
         },
         [](FaultBench& bench) { return bench.awaitShown(Shown::OtherControllersPage); },
         [](FaultBench& bench) {
             bench.otherFrames.setRate(0);
             bench.speak();
         }},
        {"two controllers at once", "nothing: the first one's page stays", "the second one's frames",
         strangerLine, [](FaultBench& bench) { bench.otherFrames.setRate(FaultBench::usualRate); },
         &FaultBench::pageGoesOn, [](FaultBench& bench) { bench.otherFrames.setRate(0); }},
        {"flood of garbage", "page stays", "frames of the controller, while it lasts", "Drop frame$",
         [](FaultBench& bench) {
             bench.garbage = std::make_unique<FrameSource>("192.168.7.2"_s, &FrameSource::garbage);
             return flood(*bench.garbage);
         },
         touchIsAnswered, [](FaultBench& bench) { bench.garbage.reset(); }},
        {"flood of a stranger's frames", "page stays", "frames of the controller, while it lasts",
         strangerLine, [](FaultBench& bench) { return flood(bench.otherFrames); }, touchIsAnswered,
         [](FaultBench& bench) { bench.otherFrames.setRate(0); }},
        {"flood of the controller's frames", "page stays, answers late",
         "frames beyond what the scripts can follow", "",
         [](FaultBench& bench) { return flood(bench.frames); }, touchIsAnswered, &FaultBench::speak},
    };
    // The datagrams in the socket are handled first, with a script for each.
    faults.back().recoveryLimit = std::chrono::seconds(60);
    return faults;
}

Faults serverFaults()
{
    return {
        {"page server refuses, short", errorPageOnce, pageStartsAgain, httpError, closeServer,
         &FaultBench::awaitErrorPage, listenAgain},
        {"page server refuses, long",
         "error page until the controller's link is lost and back",
         pageStartsAgain,
         httpError,
         closeServer,
         errorPageForGood,
         listenAgain,
         {},
         tryInVainAndLoseLink},
        {"page server refuses, long, with ProbeAgain", "error page until one of the next tries",
         pageStartsAgain, httpError, closeServer, errorPageAfterTwoTries, listenAgain, askForRecovery},
        {"page server slow", "page answers late", "nothing", "",
         [](FaultBench& bench) { bench.server.setDelay(std::chrono::seconds(3)); }, standsStill,
         &FaultBench::serveUsual},
        {"page server half-open", "page stands still; touches that need no server are answered",
         pageStartsAgain, "", acceptInSilence, standsStill, restartServer},
        {"page server half-open from the first frame", "white screen", pageStartsAgain, "", beginInSilence,
         askInVain(Shown::Blank), restartServer},
        {"page server half-open from the first frame, with PageTimeout and ProbeAgain",
         "error page until one of the next tries", pageStartsAgain, "has no answer after 2 s$",
         beginInSilence, askInVain(Shown::ErrorPage), &FaultBench::serveUsual, askForRecovery},
        {"page server answers 401", errorPageOnce, pageStartsAgain, httpError,
         answerEverything("401 Unauthorized"), &FaultBench::awaitErrorPage, &FaultBench::serveUsual},
        {"page server answers 500", errorPageOnce, pageStartsAgain, httpError,
         answerEverything("500 Internal Server Error"), &FaultBench::awaitErrorPage, &FaultBench::serveUsual},
        {"page server sends an endless body",
         "what has come of it, or still the page before",
         pageStartsAgain,
         "",
         [](FaultBench& bench) { bench.server.serveEndlessly(page); },
         endlessPage,
         restartServer,
         {},
         loseLinkForAWhile},
    };
}

Faults networkFaults()
{
    return {
        {"name not resolvable", errorPageOnce, pageStartsAgain, httpError, leaveForUnknownName,
         &FaultBench::awaitErrorPage, &FaultBench::serveUsual},
        {"name server silent", "page stays until the name is given up, then error page until the next try",
         pageStartsAgain, httpError, leaveForUnknownName, asksInVain, removeNameServer, installNameServer},
        {"interface down", "error page", pageStartsAgain, lossLine, run("ip link set eth1 down"),
         &FaultBench::awaitErrorPage, run("ip link set eth1 up")},
        {"interface gone", "error page", pageStartsAgain, lossLine, run("ip link del eth1"),
         &FaultBench::awaitErrorPage, plugInterfaceIn},
    };
}
