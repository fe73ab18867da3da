// SPDX-License-Identifier: MIT
// The running panel after a failure of its page: error page, retry timer, probe, and the lock-in after a
// failed probe. Every request is counted at the server.

#include <QTest>

#include "scene.h"

namespace {

const QByteArray page = "/index.html";
const QString fail = "WebView::handleLoadFinished() -> fail"_s;
const QString tick = "WebView::handleRetryTimer()"_s;
const QString lockedIn = "onDefault"_s;
const QString loadProbed = "WebView::loadUrl()  \"http://192.168.7.2/index.html\""_s;
const QByteArray good = "<html><body>controller</body></html>";
const QByteArray withStyle = "<html><head><link rel=stylesheet href=/s.css></head></html>";

/// A probe is a plain request: without the page's name for itself.
bool isProbe(const WebServer::Request& request)
{
    return !request.headers.value("user-agent").startsWith("Varnel");
}

int probes(const WebServer& server)
{
    return static_cast<int>(std::count_if(server.requests().cbegin(), server.requests().cend(), &isProbe));
}

SettingsFile quickRetry()
{
    return SettingsFile()
        .set("Network/RetryTimeout", "1")
        .set("Network/UdpTimeout", "600")
        .set("WebSite/Login", "user")
        .set("WebSite/Password", "pass");
}

} // namespace

class tst_Retry : public QObject
{
    Q_OBJECT

private slots:
    void failedStylesheetPutsUpTheErrorPageAndIsProbed();
    void burstOfFailuresGivesOneRetry();
    void failedProbeLocksIn();
    void failedPageReleasesTheLock();
};

void tst_Retry::failedStylesheetPutsUpTheErrorPageAndIsProbed()
{
    Scene scene;
    QVERIFY(scene.start(quickRetry()));
    scene.server.serve(page, withStyle);
    QVERIFY(scene.connectController());
    QVERIFY(scene.panel.log().await(
        {"HTTP ERROR"_s, fail, "wv: Load error page ( \"en\" )"_s, tick, loadProbed}));
    QCOMPARE(scene.panel.log().count(tick), 1);
    QVERIFY(scene.server.awaitCount("/s.css", 2)); // the page is loaded again, and fails again
    QCOMPARE(probes(scene.server), 1);
    QVERIFY(scene.panel.log().await({fail, tick}));
    for (const WebServer::Request& request : scene.server.requests()) {
        QCOMPARE(request.headers.contains("authorization"), !isProbe(request));
    }
}

void tst_Retry::burstOfFailuresGivesOneRetry()
{
    Scene scene;
    QVERIFY(scene.start(quickRetry()));
    QByteArray body = "<html><body>";
    for (int i = 0; i < 5; ++i) {
        body += "<img src=/missing" + QByteArray::number(i) + ".png>";
    }
    scene.server.serve(page, body);
    connect(&scene.server, &WebServer::requested, this, [&scene](const QByteArray& path) {
        if (path.startsWith("/missing4")) {
            scene.server.serve(page, good); // once all have failed the page gets well
        }
    });
    QVERIFY(scene.connectController());
    QVERIFY(scene.panel.log().await(loadProbed));
    QVERIFY(scene.panel.log().count(fail) >= 2);
    QCOMPARE(scene.panel.log().count(tick), 1);
    QCOMPARE(probes(scene.server), 1);
    QVERIFY(scene.server.awaitCount(page, 3)); // the page, the probe, the page
}

void tst_Retry::failedProbeLocksIn()
{
    Scene scene;
    QVERIFY(scene.start(quickRetry()));
    scene.server.refuse(page, "503 Service Unavailable");
    QVERIFY(scene.connectController());
    QVERIFY(scene.server.awaitCount(page, 2)); // the page and the one probe
    QCOMPARE(probes(scene.server), 1);
    QVERIFY(scene.panel.log().await({tick, tick, lockedIn}));
    scene.server.serve(page, good); // that the server is well again is never found out
    QVERIFY(scene.panel.log().await({tick, lockedIn, tick, lockedIn}));
    QCOMPARE(scene.server.count(page), 2);
    QCOMPARE(scene.panel.log().count(fail), 1);

    // A page that loads in between, here since the service link went down, does not stop the ticking.
    scene.sys.setOperState("usb0"_s, "up"_s);
    QVERIFY(scene.panel.log().await("Load front connection info page"_s));
    scene.sys.setOperState("usb0"_s, "down"_s);
    QVERIFY(scene.panel.log().await("Reload last page"_s));
    QVERIFY(scene.server.awaitCount(page, 3));
    QVERIFY(scene.panel.log().await({tick, lockedIn, tick, lockedIn}));
    QCOMPARE(probes(scene.server), 1);
}

void tst_Retry::failedPageReleasesTheLock()
{
    Scene scene;
    QVERIFY(scene.start(quickRetry()));
    scene.server.refuse(page, "503 Service Unavailable");
    QVERIFY(scene.connectController());
    QVERIFY(scene.panel.log().await({fail, tick, tick, lockedIn}));
    scene.sys.setOperState("usb0"_s, "up"_s);
    QVERIFY(scene.panel.log().await("Load front connection info page"_s));
    scene.sys.setOperState("usb0"_s, "down"_s);
    QVERIFY(scene.panel.log().await({"Reload last page"_s, fail})); // the page fails once more
    scene.server.serve(page, good);
    QVERIFY(scene.panel.log().await({tick, loadProbed}));
    QCOMPARE(probes(scene.server), 2);
}

QTEST_GUILESS_MAIN(tst_Retry)
#include "tst_retry.moc"
