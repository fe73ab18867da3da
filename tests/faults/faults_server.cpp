// SPDX-License-Identifier: MIT
// Faults of the controller's web server, while its frames continue.

#include <QTest>

#include "fault.h"

namespace {

const QByteArray page = "/index.html";

constexpr auto httpError = "^HTTP ERROR$";
constexpr auto nothingIsLost = "nothing; the page starts again";

bool errorPage(FaultBench& bench)
{
    return bench.awaitShown(Shown::ErrorPage);
}

bool closeServer(FaultBench& bench)
{
    bench.server.close();
    return true;
}

bool listenAgain(FaultBench& bench)
{
    return bench.server.listen();
}

bool serveAgain(FaultBench& bench)
{
    bench.serveUsual();
    bench.server.setDelay(std::chrono::milliseconds(0));
    return true;
}

/// The server ends, which breaks off what is open, and starts again.
bool restartServer(FaultBench& bench)
{
    bench.server.close();
    return serveAgain(bench) && listenAgain(bench);
}

/// The error page is there, and the panel has tried twice in vain.
bool errorPageAfterTwoTries(FaultBench& bench)
{
    const QString tick = "WebView::handleRetryTimer()"_s;
    return errorPage(bench) && bench.panel.log().await({tick, tick});
}

/// The error page is there, and the panel has tried once in vain: from then on it waits for the link.
bool errorPageForGood(FaultBench& bench)
{
    return errorPage(bench) && bench.panel.log().await("onDefault"_s);
}

bool acceptInSilence(FaultBench& bench)
{
    bench.server.answer(page, {}, AfterAnswer::KeepOpen);
    bench.server.answer("/tick", {}, AfterAnswer::KeepOpen);
    return true;
}

/// With both keys that let the panel recover by itself. A request without an answer is soon tried again.
bool askForRecovery(FaultBench& bench)
{
    bench.settings.set("Network/PageTimeout", "2").set("Network/ProbeAgain", "true");
    return true;
}

/// Frames come, and the page is asked for, while its server accepts in silence.
bool beginInSilence(FaultBench& bench)
{
    bench.frames.setRate(0);
    return acceptInSilence(bench) && bench.panel.log().await("Remove R7M"_s);
}

bool askInVain(FaultBench& bench, Shown shown)
{
    const int before = bench.server.count(page);
    bench.frames.setRate(FaultBench::usualRate);
    return bench.server.awaitCount(page, before + 1) && bench.awaitShown(shown);
}

/// Lets the controller be silent for as long as when it restarts.
bool loseLink(FaultBench& bench)
{
    bench.frames.setRate(0);
    const bool lost = bench.panel.log().await("Remove R7M"_s);
    bench.frames.setRate(FaultBench::usualRate);
    return lost;
}

/// Holds that the panel does not come back by itself first.
bool tryInVainAndLoseLink(FaultBench& bench)
{
    return bench.panel.log().await({"onDefault"_s, "onDefault"_s}) && bench.shown() == Shown::ErrorPage &&
           loseLink(bench);
}

Fault::Step answerEverything(const QByteArray& status)
{
    return [status](FaultBench& bench) {
        bench.server.refuse(page, status);
        bench.server.refuse("/tick", status);
        return true;
    };
}

/// The last request of the page is never answered; a touch is, as the page needs no server for it.
bool standsStill(FaultBench& bench)
{
    const int before = bench.ticks();
    return QTest::qWaitFor([&] { return bench.ticks() > before; }, int(patience.count())) &&
           bench.showsTouch(patience) && bench.awaitShown(Shown::ControllerPage);
}

/// The page loads itself again and never gets to its end: what has come is shown as soon as the engine finds
/// the time, and never the error page.
bool endlessPage(FaultBench& bench)
{
    const qint64 before = bench.panelMemory();
    const int loads = bench.server.count(page);
    const bool asked = bench.server.awaitCount(page, loads + 1);
    QTest::qWait(4000);
    qInfo("memory grew by %lld KiB", (bench.panelMemory() - before) / 1024);
    return asked && bench.shown() != Shown::ErrorPage;
}

} // namespace

Faults serverFaults()
{
    return {
        {"page server refuses, short", "error page until the next try", nothingIsLost, httpError, closeServer,
         errorPage, listenAgain},
        {"page server refuses, long",
         "error page until the controller's link is lost and back",
         nothingIsLost,
         httpError,
         closeServer,
         errorPageForGood,
         listenAgain,
         {},
         tryInVainAndLoseLink},
        {"page server refuses, long, with ProbeAgain", "error page until one of the next tries",
         nothingIsLost, httpError, closeServer, errorPageAfterTwoTries, listenAgain, askForRecovery},
        {"page server slow", "page answers late", "nothing", "",
         [](FaultBench& bench) {
             bench.server.setDelay(std::chrono::seconds(3));
             return true;
         },
         standsStill, serveAgain},
        {"page server half-open", "page stands still; touches that need no server are answered",
         nothingIsLost, "", acceptInSilence, standsStill, restartServer},
        {"page server half-open from the first frame", "white screen", nothingIsLost, "", beginInSilence,
         [](FaultBench& bench) { return askInVain(bench, Shown::Blank); }, restartServer},
        {"page server half-open from the first frame, with PageTimeout and ProbeAgain",
         "error page until one of the next tries", nothingIsLost, "has no answer after 2 s$", beginInSilence,
         [](FaultBench& bench) { return askInVain(bench, Shown::ErrorPage); }, serveAgain, askForRecovery},
        {"page server answers 401", "error page until the next try", nothingIsLost, httpError,
         answerEverything("401 Unauthorized"), errorPage, serveAgain},
        {"page server answers 500", "error page until the next try", nothingIsLost, httpError,
         answerEverything("500 Internal Server Error"), errorPage, serveAgain},
        {"page server sends an endless body",
         "what has come of it, or still the page before",
         nothingIsLost,
         "",
         [](FaultBench& bench) {
             bench.server.serveEndlessly(page);
             return true;
         },
         endlessPage,
         restartServer,
         {},
         loseLink},
    };
}
