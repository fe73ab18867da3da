// SPDX-License-Identifier: MIT
// The page of the running panel after a failure and after a restart.

#include <QTest>

#include "scene.h"

namespace {

const QByteArray page = "/index.html";
const QString fail = "WebView::handleLoadFinished() -> fail"_s;
const QString tick = "WebView::handleRetryTimer()"_s;
const QString loadProbed = "WebView::loadUrl()  \"http://192.168.7.2/index.html\""_s;

/// A probe is a plain request: without the page's name for itself.
bool isProbe(const WebServer::Request& request)
{
    return !request.headers.value("user-agent").startsWith("Varnel");
}

} // namespace

class tst_Pages : public QObject
{
    Q_OBJECT

private slots:
    void failedStylesheetPutsUpTheErrorPageAndIsProbed()
    {
        Scene scene;
        QVERIFY(scene.start(SettingsFile()
                                .set("Network/RetryTimeout", "1")
                                .set("Network/UdpTimeout", "600")
                                .set("WebSite/Login", "user")
                                .set("WebSite/Password", "pass")));
        scene.server.serve(page, "<html><head><link rel=stylesheet href=/s.css></head></html>");
        QVERIFY(scene.connectController());
        QVERIFY(scene.panel.log().await(
            {"HTTP ERROR"_s, fail, "wv: Load error page ( \"en\" )"_s, tick, loadProbed}));
        QCOMPARE(scene.panel.log().count(tick), 1);
        const QList<WebServer::Request>& requests = scene.server.requests();
        QVERIFY(scene.server.awaitCount("/s.css", 2)); // the page is loaded again, and fails again
        QCOMPARE(std::count_if(requests.cbegin(), requests.cend(), &isProbe), 1);
        QVERIFY(scene.panel.log().await({fail, tick}));
        for (const WebServer::Request& request : requests) {
            QCOMPARE(request.headers.contains("authorization"), !isProbe(request));
        }
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
