// SPDX-License-Identifier: MIT
// A service manager's signal ends the panel in order, whatever it is doing.

#include <QTest>

#include "scene.h"

namespace {

const QByteArray page = "/index.html";

/// Brings the panel to where the row's name says it is.
bool reach(Scene& scene, const QString& state)
{
    LogReader& log = scene.panel.log();
    if (state == "waiting"_s) {
        return true;
    }
    if (state == "connected"_s) {
        return scene.connectController() && scene.isAlive();
    }
    if (state == "page request open"_s) {
        scene.server.answer(page, QByteArray(), AfterAnswer::KeepOpen);
        return scene.connectController();
    }
    if (state == "half a page here"_s) {
        scene.server.answer(page, "HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n<html>half",
                            AfterAnswer::KeepOpen);
        return scene.connectController() && scene.isAlive();
    }
    if (state == "endless page"_s) {
        scene.server.serveEndlessly(page);
        return scene.connectController() && scene.isAlive();
    }
    if (state == "pictures open"_s) {
        scene.server.serve(page, "<html><img src=/1.png><img src=/2.png><img src=/3.png></html>");
        for (const char* const path : {"/1.png", "/2.png", "/3.png"}) {
            scene.server.answer(path, "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n",
                                AfterAnswer::KeepOpen);
        }
        return scene.connectController() && scene.server.awaitCount("/3.png", 1);
    }
    if (state == "error page"_s) {
        scene.server.refuse(page, "500 Oops");
        return scene.connectController() && log.await("WebView::handleRetryTimer()"_s);
    }
    if (state == "probe open"_s) {
        scene.server.refuse(page, "500 Oops");
        const bool connected = scene.connectController();
        scene.server.answer(page, QByteArray(), AfterAnswer::KeepOpen);
        return connected && scene.server.awaitCount(page, 2);
    }
    if (state == "link lost"_s) {
        return scene.connectController() && log.await("Remove R7M"_s);
    }
    if (state == "screen dark"_s) {
        return log.await("goSleep"_s);
    }
    scene.sys.setOperState("usb0"_s, "up"_s);
    return log.await("Load front connection info page"_s);
}

} // namespace

class tst_Ending : public QObject
{
    Q_OBJECT

private slots:
    void signalEndsInOrder_data();
    void signalEndsInOrder();
    void signalDuringStartUp();
    void secondSignalDoesNoHarm();
    void outputsStayAsTheyAre();
};

void tst_Ending::signalEndsInOrder_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<int>("signalNumber");
    for (const char* const state :
         {"waiting", "connected", "page request open", "half a page here", "endless page", "pictures open",
          "error page", "probe open", "link lost", "screen dark", "info page"}) {
        QTest::addRow("SIGTERM, %s: status 0", state) << QString::fromLatin1(state) << SIGTERM;
    }
    QTest::newRow("SIGINT, waiting: status 0") << "waiting"_s << SIGINT;
    QTest::newRow("SIGINT, page request open: status 0") << "page request open"_s << SIGINT;
}

void tst_Ending::signalEndsInOrder()
{
    QFETCH(QString, state);
    QFETCH(int, signalNumber);
    Scene scene;
    const bool lost = state == "link lost"_s;
    const bool dark = state == "screen dark"_s;
    QVERIFY(scene.start(SettingsFile()
                            .set("Network/UdpTimeout", lost ? "1" : "600")
                            .set("Network/RetryTimeout", "1")
                            .set("UI/ScreenSaverInterval", dark ? "0" : "600000")));
    scene.panel.log().rewind();
    QVERIFY(reach(scene, state));
    scene.panel.log().skip();
    QCOMPARE(scene.panel.stop(signalNumber), 0);
    QVERIFY(scene.panel.log().await("UDP stop"_s));
}

void tst_Ending::signalDuringStartUp()
{
    Scene scene;
    QVERIFY(scene.panel.start());
    QVERIFY(scene.panel.log().await("release =  \"ReleaseUndef\""_s));
    QCOMPARE(scene.panel.stop(), 0);
    scene.panel.log().rewind();
    QVERIFY(scene.panel.log().await({"UDP bound"_s, "UDP stop"_s}));
}

void tst_Ending::secondSignalDoesNoHarm()
{
    Scene scene;
    QVERIFY(scene.start());
    QVERIFY(scene.connectController());
    scene.panel.signal(SIGTERM);
    scene.panel.signal(SIGINT);
    QCOMPARE(scene.panel.stop(), 0);
}

void tst_Ending::outputsStayAsTheyAre()
{
    Scene scene;
    QVERIFY(scene.start());
    QVERIFY(scene.connectController());
    QVERIFY(scene.controller.send(Frame(50).gpioState(1, 0, 1, 1)));
    QTRY_COMPARE_WITH_TIMEOUT(StandInSys::value(StandInSys::buzzer), "1"_s, 20000);
    QCOMPARE(scene.panel.stop(), 0);
    QCOMPARE(StandInSys::value(StandInSys::green), "1"_s);
    QCOMPARE(StandInSys::value(StandInSys::yellow), "0"_s);
    QCOMPARE(StandInSys::value(StandInSys::red), "1"_s);
    QCOMPARE(StandInSys::value(StandInSys::buzzer), "1"_s);
}

QTEST_GUILESS_MAIN(tst_Ending)
#include "tst_ending.moc"
