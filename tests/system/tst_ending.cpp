// SPDX-License-Identifier: MIT
// A service manager's signal ends the panel in order, whatever it is doing.

#include <functional>

#include "rows.h"
#include "scene.h"

namespace {

const QByteArray page = "/index.html";

/// Brings the panel to a state; false when that fails.
using Reach = std::function<bool(Scene&)>;

/// The page is answered by these octets and no more.
Reach answered(const QByteArray& octets)
{
    return [octets](Scene& scene) {
        scene.server.answer(page, octets, AfterAnswer::KeepOpen);
        return scene.connectController();
    };
}

bool openPictures(Scene& scene)
{
    scene.server.serve(page, "<html><img src=/1.png><img src=/2.png><img src=/3.png></html>");
    for (const char* const path : {"/1.png", "/2.png", "/3.png"}) {
        scene.server.answer(path, "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n", AfterAnswer::KeepOpen);
    }
    return scene.connectController() && scene.server.awaitCount("/3.png", 1);
}

bool errorPage(Scene& scene)
{
    scene.server.refuse(page, "500 Oops");
    return scene.connectController() && scene.panel.log().await("WebView::handleRetryTimer()"_s);
}

bool openProbe(Scene& scene)
{
    scene.server.refuse(page, "500 Oops");
    const bool connected = scene.connectController();
    scene.server.answer(page, QByteArray(), AfterAnswer::KeepOpen);
    return connected && scene.server.awaitCount(page, 2);
}

} // namespace

Q_DECLARE_METATYPE(Reach)
Q_DECLARE_METATYPE(SettingsFile)

class tst_Ending : public QObject
{
    Q_OBJECT

private slots:
    void signalEndsInOrder_data()
    {
        const Rows<Reach, SettingsFile, int> add("reach", "settings", "signalNumber");
        const auto patient = SettingsFile().set("Network/UdpTimeout", "600");
        const auto row = [&add](const char* name, const Reach& reach, const SettingsFile& settings,
                                int signalNumber = SIGTERM) { add(name, reach, settings, signalNumber); };
        const Reach waiting = [](Scene& /*scene*/) { return true; };
        row("waiting", waiting, patient);
        row("waiting, SIGINT", waiting, patient, SIGINT);
        row(
            "connected", [](Scene& scene) { return scene.connectController() && scene.isAlive(); }, patient);
        row("page request open", answered({}), patient);
        row("page request open, SIGINT", answered({}), patient, SIGINT);
        row("half a page here", answered("HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n<html>half"),
            patient);
        row(
            "endless page",
            [](Scene& scene) {
                scene.server.serveEndlessly(page);
                return scene.connectController() && scene.isAlive();
            },
            patient);
        row("pictures open", openPictures, patient);
        row("error page", errorPage, SettingsFile(patient).set("Network/RetryTimeout", "1"));
        row("probe open", openProbe, SettingsFile(patient).set("Network/RetryTimeout", "1"));
        row(
            "link lost",
            [](Scene& scene) { return scene.connectController() && scene.panel.log().await("Remove R7M"_s); },
            SettingsFile().set("Network/UdpTimeout", "1"));
        row(
            "screen dark", [](Scene& scene) { return scene.panel.log().await("goSleep"_s); },
            SettingsFile().set("UI/ScreenSaverInterval", "0"));
        row(
            "info page",
            [](Scene& scene) {
                scene.sys.setOperState("usb0"_s, "up"_s);
                return scene.panel.log().await("Load front connection info page"_s);
            },
            patient);
    }

    void signalEndsInOrder()
    {
        QFETCH(SettingsFile, settings);
        QFETCH(Reach, reach);
        QFETCH(int, signalNumber);
        Scene scene;
        QVERIFY(scene.start(settings));
        scene.panel.log().rewind();
        QVERIFY(reach(scene));
        scene.panel.log().skip();
        QCOMPARE(scene.panel.stop(signalNumber), 0);
        QVERIFY(scene.panel.log().await("UDP stop"_s));
    }

    void signalDuringStartUp()
    {
        Scene scene;
        QVERIFY(scene.panel.start());
        QVERIFY(scene.panel.log().await("release =  \"ReleaseUndef\""_s));
        QCOMPARE(scene.panel.stop(), 0);
        scene.panel.log().rewind();
        QVERIFY(scene.panel.log().await({"UDP bound"_s, "UDP stop"_s}));
    }
};

QTEST_GUILESS_MAIN(tst_Ending)
#include "tst_ending.moc"
