// SPDX-License-Identifier: MIT
#include <functional>
#include <memory>

#include <QTest>

#include "panelview.h"
#include "webserver.h"

using Varnel::WebView;
using ShowPage = std::function<void(WebView*, const QUrl&)>;

Q_DECLARE_METATYPE(ShowPage)

/// The view after a failure: wait, probe the default address, load it, or tick on.
class tst_WebViewRetry : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void timerIsSetUpOnce();
    void retryLoadsTheDefaultAddress();
    void runningTimerIsLeftAlone();
    void goodRepliesChangeNothing();
    void probeCarriesNothing();
    void probeIsNotRepeatedWhileItIsOut();
    void failedProbeLocksIn();
    void goodPageDoesNotStopTheTicking();
    void forgottenProbe();
    void probedAddressAsAnswered();
    void emptyDefaultAddress();
    void probesThatFail_data();
    void probesThatFail();
    void repeatedProbes_data();
    void repeatedProbes();
    void repeatedProbeThatSucceeds();
    void anotherPageEndsRepeatedProbes_data();
    void anotherPageEndsRepeatedProbes();
    void repeatedProbeHasALimit();

private:
    std::unique_ptr<WebServer> server;
    QUrl home;
    QUrl missing;
};

namespace {

const QString homePath = QStringLiteral("/home");
const QString fail = QStringLiteral("WebView::handleLoadFinished() -> fail");
const QString tick = QStringLiteral("WebView::handleRetryTimer()");
const QString onDefault = QStringLiteral("onDefault");

/// The retry timer fires, without the wait.
void fire(PanelView& panel)
{
    panel.timer()->stop();
    panel.view->handleRetryTimer();
}

} // namespace

void tst_WebViewRetry::init()
{
    server = std::make_unique<WebServer>();
    server->serve(homePath, QByteArray("<p>home</p>"));
    server->serve(QStringLiteral("/good"), QByteArray("<p>good</p>"));
    home = server->url(homePath);
    missing = server->url(QStringLiteral("/missing"));
}

void tst_WebViewRetry::cleanup()
{
    server.reset();
}

void tst_WebViewRetry::timerIsSetUpOnce()
{
    PanelView panel(7);
    QVERIFY(panel.timer()->isSingleShot());
    QCOMPARE(panel.timer()->interval(), 7000);
    QVERIFY(!panel.timer()->isActive());
    const ScopedSetting<quint16> later("Network", "RetryTimeout", quint16(9));
    panel.view->handleLoadFinished(false);
    QVERIFY(panel.timer()->isActive());
    QCOMPARE(panel.timer()->interval(), 7000);
}

void tst_WebViewRetry::retryLoadsTheDefaultAddress()
{
    // The whole road, with the real timer and every line in order.
    PanelView panel(1);
    panel.view->setDefaultUrl(home.toString());
    panel.view->loadUrl(missing);
    QTRY_COMPARE(panel.text(), QStringLiteral("home"));
    panel.waitForQuiet();
    const QString url = missing.toString();
    QCOMPARE(
        panel.log(),
        (QStringList{
            QStringLiteral("WebView::loadUrl()  \"%1\"").arg(url),
            QStringLiteral("TIME - Request '%1' failed: Error transferring %1 - server replied: Not Found")
                .arg(url),
            QStringLiteral("HTTP ERROR"), fail, QStringLiteral("wv: Load error page ( \"default\" )"),
            QStringLiteral("\"/usr/local/share/default\""), tick,
            QStringLiteral("WebView::loadUrl()  \"%1\"").arg(home.toString())}));
    QCOMPARE(server->count(QStringLiteral("/missing")), 1);
    QCOMPARE(server->count(homePath), 2); // the probe, then the page
    QVERIFY(!panel.timer()->isActive());

    // The default address is now what a reload loads.
    panel.view->reloadUrl();
    QTRY_COMPARE(server->count(homePath), 3);
}

void tst_WebViewRetry::runningTimerIsLeftAlone()
{
    PanelView panel;
    panel.timer()->setTimerType(Qt::PreciseTimer); // a coarse one may fire a little early
    panel.view->handleLoadFinished(false);
    QVERIFY(panel.timer()->isActive());
    QTRY_VERIFY(panel.timer()->remainingTime() < panel.timer()->interval() - 20);
    panel.view->handleLoadFinished(false);
    panel.view->handleLoadFinished(false);
    QVERIFY(panel.timer()->remainingTime() < panel.timer()->interval() - 20); // not restarted
    QCOMPARE(panel.count(fail), 3);
}

void tst_WebViewRetry::goodRepliesChangeNothing()
{
    PanelView panel;
    panel.load(server->url(QStringLiteral("/good")));
    panel.clear();
    panel.view->handleLoadFinished(true);
    QCOMPARE(panel.log(), QStringList());
    QVERIFY(!panel.timer()->isActive());
    QCOMPARE(panel.text(), QStringLiteral("good"));

    panel.view->handleLoadFinished(false);
    QVERIFY(panel.showsErrorPage());
    panel.view->handleLoadFinished(true);
    QVERIFY(panel.timer()->isActive());
    QVERIFY(panel.showsErrorPage());
}

void tst_WebViewRetry::probeCarriesNothing()
{
    const ScopedSetting<QString> login("WebSite", "Login", QStringLiteral("user"));
    Varnel::Settings::setLogVerbose(true);
    PanelView panel;
    panel.view->setDefaultUrl(home.toString());
    panel.view->tryload(missing); // the argument is not used
    QTRY_COMPARE(server->count(homePath), 2);
    Varnel::Settings::setLogVerbose(false);
    const WebServer::Request probe = server->requests().at(0);
    const WebServer::Request load = server->requests().at(1);
    QCOMPARE(probe.method, QByteArray("GET"));
    QVERIFY(!probe.headers.contains("authorization"));
    QVERIFY(!probe.headers.value("user-agent").startsWith("Varnel"));
    QVERIFY(load.headers.contains("authorization"));
    QVERIFY(load.headers.value("user-agent").startsWith("Varnel"));
    // The access manager of the page logs the load alone.
    QCOMPARE(panel.log().count(QStringLiteral("TIME - [REQUEST] Request '%1' started").arg(home.toString())),
             1);
    QCOMPARE(server->count(QStringLiteral("/missing")), 0);
}

void tst_WebViewRetry::probeIsNotRepeatedWhileItIsOut()
{
    WebServer::Answer silent;
    silent.silent = true;
    silent.headers = "Content-Type: text/html\r\n";
    silent.body = "<p>home</p>";
    server->serve(homePath, silent);
    PanelView panel;
    panel.view->setDefaultUrl(home.toString());
    fire(panel);
    QTRY_COMPARE(server->count(homePath), 1);
    QCOMPARE(panel.log(), QStringList{tick});
    QVERIFY(!panel.timer()->isActive());

    fire(panel);
    QCOMPARE(panel.log(), (QStringList{tick, tick, onDefault}));
    QVERIFY(panel.timer()->isActive());
    fire(panel);
    QVERIFY(panel.timer()->isActive());

    server->release(homePath);
    QTRY_COMPARE(server->count(homePath), 2); // the load that follows the one probe
    QCOMPARE(panel.log().constLast(), QStringLiteral("WebView::loadUrl()  \"%1\"").arg(home.toString()));
    QVERIFY(panel.timer()->isActive()); // that tick comes, and probes again
}

void tst_WebViewRetry::failedProbeLocksIn()
{
    PanelView panel(1);
    server->refuse(homePath, "503 Service Unavailable");
    panel.view->setDefaultUrl(home.toString());
    panel.view->tryload(QUrl());
    QTRY_VERIFY(panel.timer()->isActive());
    QCOMPARE(server->count(homePath), 1);
    QVERIFY(!panel.showsErrorPage()); // a failed probe is no failed page

    // Two real ticks: each logs, and no probe goes out, though the server would answer now.
    server->serve(homePath, QByteArray("<p>home</p>"));
    panel.clear();
    QTRY_VERIFY(panel.log().size() >= 4);
    QCOMPARE(panel.log(), (QStringList{tick, onDefault, tick, onDefault}));
    QCOMPARE(server->count(homePath), 1);

    // A failed reply of the page lets the next tick probe again.
    panel.load(missing);
    QTRY_COMPARE(panel.text(), QStringLiteral("home"));
    QCOMPARE(server->count(homePath), 3);
}

void tst_WebViewRetry::goodPageDoesNotStopTheTicking()
{
    PanelView panel;
    panel.view->setDefaultUrl(missing.toString());
    panel.view->tryload(QUrl());
    QTRY_VERIFY(panel.timer()->isActive());
    panel.load(server->url(QStringLiteral("/good")));
    QTRY_COMPARE(panel.text(), QStringLiteral("good"));
    panel.clear();
    for (int i = 0; i < 3; ++i) {
        fire(panel);
        QVERIFY(panel.timer()->isActive());
    }
    QCOMPARE(panel.log(), (QStringList{tick, onDefault, tick, onDefault, tick, onDefault}));
    QCOMPARE(panel.text(), QStringLiteral("good"));
    QCOMPARE(server->count(QStringLiteral("/missing")), 1);
}

void tst_WebViewRetry::forgottenProbe()
{
    // A page that fails while a probe is out allows a second one; when both are answered, the page is loaded
    // once.
    WebServer::Answer silent;
    silent.silent = true;
    silent.headers = "Content-Type: text/html\r\n";
    silent.body = "<p>home</p>";
    server->serve(homePath, silent);
    PanelView panel;
    panel.view->setDefaultUrl(home.toString());
    fire(panel);
    QTRY_COMPARE(server->count(homePath), 1);
    panel.view->handleLoadFinished(false);
    QVERIFY(panel.timer()->isActive());
    server->serve(homePath, QByteArray("<p>home</p>"));
    fire(panel);
    QTRY_COMPARE(panel.text(), QStringLiteral("home"));
    QCOMPARE(server->count(homePath), 3);
    QCOMPARE(panel.count(QStringLiteral("WebView::loadUrl()  \"%1\"").arg(home.toString())), 1);
}

void tst_WebViewRetry::probedAddressAsAnswered()
{
    WebServer::Answer redirect;
    redirect.status = "302 Found";
    redirect.headers = "Location: /good\r\n";
    server->serve(homePath, redirect);
    PanelView panel;
    panel.view->setDefaultUrl(home.toString());
    panel.view->tryload(QUrl());
    QTRY_COMPARE(panel.text(), QStringLiteral("good")); // the view follows where the probe did not
    QCOMPARE(panel.count(QStringLiteral("WebView::loadUrl()  \"%1\"").arg(home.toString())), 1);
    QCOMPARE(server->count(QStringLiteral("/good")), 1);
}

void tst_WebViewRetry::emptyDefaultAddress()
{
    PanelView panel;
    panel.view->handleLoadFinished(false);
    fire(panel);
    QVERIFY(!panel.timer()->isActive());
    QTRY_VERIFY(panel.timer()->isActive()); // the probe has failed
    panel.clear();
    fire(panel);
    QCOMPARE(panel.log(), (QStringList{tick, onDefault}));
    QCOMPARE(server->requests().size(), 0);
}

void tst_WebViewRetry::probesThatFail_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::newRow("404") << QByteArray("404 Not Found");
    QTest::newRow("401") << QByteArray("401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"controller\"");
    QTest::newRow("500") << QByteArray("500 Internal Server Error");
    QTest::newRow("no server listens") << QByteArray();
}

void tst_WebViewRetry::probesThatFail()
{
    QFETCH(QByteArray, status);
    if (status.isEmpty()) {
        server->close();
    } else {
        server->refuse(homePath, status);
    }
    PanelView panel;
    panel.view->setDefaultUrl(home.toString());
    panel.view->tryload(QUrl());
    QVERIFY(!panel.timer()->isActive());
    QTRY_VERIFY(panel.timer()->isActive());
    QCOMPARE(panel.log(), QStringList()); // neither an error line nor an error page
    QCOMPARE(server->count(homePath), status.isEmpty() ? 0 : 1);
}

void tst_WebViewRetry::repeatedProbes_data()
{
    QTest::addColumn<quint16>("retryTimeout");
    QTest::addColumn<QList<int>>("pauses"); ///< in seconds
    QTest::newRow("doubled up to five minutes") << quint16(50) << QList<int>{50, 100, 200, 300, 300};
    QTest::newRow("never shorter than the retry timeout") << quint16(400) << QList<int>{400, 400};
    QTest::newRow("never without a pause") << quint16(0) << QList<int>{1, 2, 4};
}

void tst_WebViewRetry::repeatedProbes()
{
    QFETCH(quint16, retryTimeout);
    QFETCH(QList<int>, pauses);
    const ScopedSetting<bool> again("Network", "ProbeAgain", true);
    PanelView panel(retryTimeout);
    panel.view->setDefaultUrl(missing.toString());
    for (int i = 0; i < pauses.size(); ++i) {
        fire(panel);
        QTRY_VERIFY(panel.timer()->isActive());
        QCOMPARE(panel.timer()->interval(), 1000 * pauses.at(i));
        QCOMPARE(server->count(QStringLiteral("/missing")), i + 1);
    }
    panel.view->setUrl(missing); // the next failure of a page begins from the start
    QTRY_COMPARE(panel.timer()->interval(), 1000 * pauses.constFirst());
}

void tst_WebViewRetry::repeatedProbeThatSucceeds()
{
    const ScopedSetting<bool> again("Network", "ProbeAgain", true);
    PanelView panel(1);
    server->refuse(homePath, "503 Service Unavailable");
    panel.view->setDefaultUrl(home.toString());
    panel.view->loadUrl(home);
    QTRY_COMPARE(server->count(homePath), 2); // the page, the first probe
    server->serve(homePath, QByteArray("<p>home</p>"));
    QTRY_COMPARE(panel.text(), QStringLiteral("home"));
    QCOMPARE(server->count(homePath), 4);
    QCOMPARE(panel.count(onDefault), 0);
    QVERIFY(!panel.timer()->isActive());
}

void tst_WebViewRetry::anotherPageEndsRepeatedProbes_data()
{
    QTest::addColumn<ShowPage>("show");
    const auto row = [](const char* name, const ShowPage& show) { QTest::newRow(name) << show; };
    row("loadUrl", [](WebView* view, const QUrl& url) { view->loadUrl(url); });
    row("setUrl", [](WebView* view, const QUrl& url) { view->setUrl(url); });
    row("loadRequest", [](WebView* view, const QUrl& url) { view->loadRequest(QNetworkRequest(url)); });
    row("reloadUrl", [](WebView* view, const QUrl&) { view->reloadUrl(); });
    row("info page", [](WebView* view, const QUrl&) { view->displayInfoFront(QString()); });
}

void tst_WebViewRetry::anotherPageEndsRepeatedProbes()
{
    QFETCH(ShowPage, show);
    const ScopedSetting<bool> again("Network", "ProbeAgain", true);
    PanelView panel;
    panel.load(server->url(QStringLiteral("/good"))); // what reloadUrl() asks for
    WebServer::Answer silent;
    silent.silent = true;
    server->serve(homePath, silent);
    panel.view->setDefaultUrl(home.toString());
    panel.view->handleLoadFinished(false);
    fire(panel);
    QTRY_COMPARE(server->count(homePath), 1);
    panel.view->handleLoadFinished(false);
    show(panel.view, server->url(QStringLiteral("/good")));
    QVERIFY(!panel.timer()->isActive());
    QTRY_VERIFY(!panel.showsErrorPage());
    panel.waitForQuiet();
    const QString shown = panel.text();
    server->release(homePath); // the probe's answer comes too late
    QTRY_VERIFY(!server->isConnected(homePath));
    panel.waitForQuiet();
    QCOMPARE(panel.text(), shown);
    QCOMPARE(server->count(homePath), 1);
}

void tst_WebViewRetry::repeatedProbeHasALimit()
{
    const ScopedSetting<bool> again("Network", "ProbeAgain", true);
    const ScopedSetting<quint16> limit("Network", "PageTimeout", quint16(1));
    WebServer::Answer silent;
    silent.silent = true;
    server->serve(homePath, silent);
    PanelView panel;
    panel.view->setDefaultUrl(home.toString());
    panel.view->tryload(QUrl());
    QTRY_VERIFY(panel.timer()->isActive());
    QCOMPARE(server->count(homePath), 1);
}

QTEST_MAIN(tst_WebViewRetry)
#include "tst_webview_retry.moc"
