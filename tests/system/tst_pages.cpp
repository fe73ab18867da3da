// SPDX-License-Identifier: MIT
// The page that the running panel chooses: after a failure, with the service link at its front, after a
// restart. Every request is counted at the server.

#include <QTest>

#include "scene.h"

namespace {

const QByteArray page = "/index.html";
const QString fail = "WebView::handleLoadFinished() -> fail"_s;
const QString tick = "WebView::handleRetryTimer()"_s;
const QString lockedIn = "onDefault"_s;
const QString loadProbed = "WebView::loadUrl()  \"http://192.168.7.2/index.html\""_s;
const QString infoPage = "Load front connection info page"_s;
const QString lastPage = "Reload last page"_s;
const QString serviceLink = "usb0"_s;

/// A probe is a plain request: without the page's name for itself.
bool isProbe(const WebServer::Request& request)
{
    return !request.headers.value("user-agent").startsWith("Varnel");
}

qint64 probes(const WebServer& server)
{
    return std::count_if(server.requests().cbegin(), server.requests().cend(), &isProbe);
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

class tst_Pages : public QObject
{
    Q_OBJECT

private slots:
    void failedStylesheetPutsUpTheErrorPageAndIsProbed()
    {
        Scene scene;
        QVERIFY(scene.start(quickRetry()));
        scene.server.serve(page, "<html><head><link rel=stylesheet href=/s.css></head></html>");
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

    void burstOfFailuresGivesOneRetry()
    {
        Scene scene;
        QVERIFY(scene.start(quickRetry()));
        scene.server.serve(page, "<html><img src=/0.png><img src=/1.png><img src=/2.png></html>");
        connect(&scene.server, &WebServer::requested, this, [&scene](const QByteArray& path) {
            if (path == "/2.png") {
                scene.server.serve(page, "<html></html>"); // once all have failed the page gets well
            }
        });
        QVERIFY(scene.connectController());
        QVERIFY(scene.panel.log().await(loadProbed));
        QVERIFY(scene.panel.log().count(fail) >= 2);
        QCOMPARE(scene.panel.log().count(tick), 1);
        QCOMPARE(probes(scene.server), 1);
        QVERIFY(scene.server.awaitCount(page, 3)); // the page, the probe, the page
    }

    void failedProbeLocksIn()
    {
        Scene scene;
        QVERIFY(scene.start(quickRetry()));
        scene.server.refuse(page, "503 Service Unavailable");
        QVERIFY(scene.connectController());
        QVERIFY(scene.server.awaitCount(page, 2)); // the page and the one probe
        QVERIFY(scene.panel.log().await({tick, tick, lockedIn}));
        scene.server.serve(page, "<html></html>"); // that the server is well again is never found out
        QVERIFY(scene.panel.log().await({tick, lockedIn, tick, lockedIn}));
        QCOMPARE(scene.server.count(page), 2);
        QCOMPARE(scene.panel.log().count(fail), 1);

        // A page that loads in between, here since the service link went down, does not stop the ticking.
        scene.sys.setOperState(serviceLink, "up"_s);
        QVERIFY(scene.panel.log().await(infoPage));
        scene.sys.setOperState(serviceLink, "down"_s);
        QVERIFY(scene.panel.log().await(lastPage));
        QVERIFY(scene.server.awaitCount(page, 3));
        QVERIFY(scene.panel.log().await({tick, lockedIn, tick, lockedIn}));
        QCOMPARE(probes(scene.server), 1);
    }

    void serviceLinkShowsTheInfoPageOnceAndThenTheLastPageOnce()
    {
        Scene scene;
        QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "600")));
        QVERIFY(scene.connectController("de"));
        scene.sys.setOperState(serviceLink, "up"_s);
        QVERIFY(scene.panel.log().await(
            {infoPage, "ws: Load info page ( \"de\" )"_s, "\"/usr/local/share/de\""_s}));
        QTest::qWait(2500); // one more look at the link: there is nothing to await when nothing is to happen
        scene.sys.setOperState(serviceLink, "down"_s);
        QVERIFY(scene.panel.log().await(
            {lastPage, "MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""_s}));
        QVERIFY(scene.server.awaitCount(page, 2));
        scene.sys.removeInterface(serviceLink); // counts as down: nothing changes
        QTest::qWait(2500);
        QCOMPARE(scene.panel.log().count(infoPage), 1);
        QCOMPARE(scene.panel.log().count(lastPage), 1);
        QCOMPARE(scene.server.count(page), 2);
    }

    void serviceLinkDownWithoutAnyPageShowsTheErrorPage()
    {
        Scene scene;
        scene.sys.setOperState(serviceLink, "up"_s);
        QVERIFY(scene.start());
        QVERIFY(scene.panel.log().await(infoPage));
        scene.sys.setOperState(serviceLink, "down"_s);
        QVERIFY(scene.panel.log().await({lastPage, "MainWindow::openUrlForce  \"\""_s,
                                         "wv: Load error page ( \"default\" )"_s,
                                         "Can't open url ( true ,  \"\" )"_s}));
    }

    /// A restart keeps what the page's scripts have stored, never the page itself.
    void pageDoesNotOutliveItsServer()
    {
        Scene scene;
        QVERIFY(scene.start());
        // Asks the engine to keep the page for use without a server, and reports once there was time for it.
        scene.server.serve("/site.manifest", "CACHE MANIFEST\n/index.html\nNETWORK:\n*\n",
                           "text/cache-manifest");
        scene.server.serve(page,
                           "<html manifest=/site.manifest><script>localStorage.setItem('kept', 'yes');"
                           "setTimeout(function() { new Image().src = '/settled'; }, 2000);</script></html>");
        QVERIFY(scene.connectController());
        QVERIFY(scene.server.awaitCount("/settled", 1));
        QCOMPARE(scene.panel.stop(), 0);

        scene.server.serve(page, "<html><script>new Image().src = '/stored-' + localStorage.getItem('kept');"
                                 "</script></html>");
        QVERIFY(scene.start());
        QVERIFY(scene.connectController()); // the server is asked for its page
        QVERIFY(scene.server.awaitCount("/stored-yes", 1));
        QCOMPARE(scene.panel.stop(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_Pages)
#include "tst_pages.moc"
