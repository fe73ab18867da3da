// SPDX-License-Identifier: MIT
#include <memory>

#include "panelview.h"
#include "rows.h"
#include "webserver.h"

namespace {

const QString fail = "WebView::handleLoadFinished() -> fail"_s;
const QString tick = "WebView::handleRetryTimer()"_s;
const QString onDefault = "onDefault"_s;

/// The retry timer fires, without the wait.
void fire(PanelView& panel)
{
    panel.timer()->stop();
    panel.view->handleRetryTimer();
}

} // namespace

/// The view after a failure: wait, probe the default address, load it, or tick on.
class tst_WebViewRetry : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server = std::make_unique<WebServer>();
        server->serve("/home", "<p>home</p>");
        server->serve("/good", "<p>good</p>");
        home = server->url("/home");
        missing = server->url("/missing");
        loadsHome = "WebView::loadUrl()  \"%1\""_s.arg(home.toString());
    }

    void retryLoadsTheDefaultAddress()
    {
        PanelView panel(1); // the real timer, and every line in order
        panel.view->setDefaultUrl(home.toString());
        panel.view->loadUrl(missing);
        QTRY_COMPARE(panel.text(), "home"_s);
        panel.waitForQuiet();
        const QString url = missing.toString();
        QCOMPARE(
            panel.log(),
            (QStringList{
                "WebView::loadUrl()  \"%1\""_s.arg(url),
                "TIME - Request '%1' failed: Error transferring %1 - server replied: Not Found"_s.arg(url),
                "HTTP ERROR"_s, fail, "wv: Load error page ( \"default\" )"_s,
                "\"/usr/local/share/default\""_s, tick, loadsHome}));
        QCOMPARE(server->count("/missing"), 1);
        QCOMPARE(server->count("/home"), 2); // the probe, then the page
        QVERIFY(!panel.timer()->isActive());

        // The default address is now what a reload loads.
        panel.view->reloadUrl();
        QTRY_COMPARE(server->count("/home"), 3);
    }

    void failuresStartTheTimerOnce()
    {
        PanelView panel(7);
        QVERIFY(panel.timer()->isSingleShot());
        QVERIFY(!panel.timer()->isActive());
        const ScopedSetting<quint16> later("Network", "RetryTimeout", quint16(9)); // read at the start only
        panel.view->handleLoadFinished(false);
        QVERIFY(panel.timer()->isActive());
        QCOMPARE(panel.timer()->interval(), 7000);
        QTRY_VERIFY(panel.timer()->remainingTime() < 7000 - 20);
        panel.view->handleLoadFinished(false);
        panel.view->handleLoadFinished(false);
        QVERIFY(panel.timer()->remainingTime() < 7000 - 20); // not restarted
        QCOMPARE(panel.count(fail), 3);
    }

    void goodRepliesChangeNothing()
    {
        PanelView panel;
        panel.load(server->url("/good"));
        panel.clear();
        panel.view->handleLoadFinished(true);
        QCOMPARE(panel.log(), QStringList());
        QVERIFY(!panel.timer()->isActive());
        QCOMPARE(panel.text(), "good"_s);

        panel.view->handleLoadFinished(false);
        QVERIFY(panel.showsErrorPage());
        panel.view->handleLoadFinished(true);
        QVERIFY(panel.timer()->isActive());
        QVERIFY(panel.showsErrorPage());
    }

    void probeCarriesNothing()
    {
        const ScopedSetting<QString> login("WebSite", "Login", "user"_s);
        Varnel::Settings::setLogVerbose(true);
        PanelView panel;
        panel.view->setDefaultUrl(home.toString());
        panel.view->tryload(missing); // the argument is not used
        QTRY_COMPARE(server->count("/home"), 2);
        Varnel::Settings::setLogVerbose(false);
        const WebServer::Request probe = server->requests().at(0);
        const WebServer::Request load = server->requests().at(1);
        QCOMPARE(probe.method, QByteArray("GET"));
        QVERIFY(!probe.headers.contains("authorization"));
        QVERIFY(!probe.headers.value("user-agent").startsWith("Varnel"));
        QVERIFY(load.headers.contains("authorization"));
        QVERIFY(load.headers.value("user-agent").startsWith("Varnel"));
        // The access manager of the page logs the load alone.
        QCOMPARE(panel.log().count("TIME - [REQUEST] Request '%1' started"_s.arg(home.toString())), 1);
        QCOMPARE(server->count("/missing"), 0);
    }

    void probeIsNotRepeatedWhileItIsOut()
    {
        server->hold("/home", "<p>home</p>");
        PanelView panel;
        panel.view->setDefaultUrl(home.toString());
        fire(panel);
        QTRY_COMPARE(server->count("/home"), 1);
        QCOMPARE(panel.log(), QStringList{tick});
        QVERIFY(!panel.timer()->isActive());

        fire(panel);
        QCOMPARE(panel.log(), (QStringList{tick, tick, onDefault}));
        QVERIFY(panel.timer()->isActive());
        fire(panel);
        QVERIFY(panel.timer()->isActive());

        server->release("/home");
        QTRY_COMPARE(server->count("/home"), 2); // the load that follows the one probe
        QCOMPARE(panel.log().constLast(), loadsHome);
        QVERIFY(panel.timer()->isActive()); // that tick comes, and probes again
    }

    void failedProbeLocksIn_data()
    {
        const Rows<QString> row("address");
        row("404", "/missing"_s);
        row("no server listens", "http://127.0.0.1:1/"_s);
        row("empty default address", {});
    }

    void failedProbeLocksIn()
    {
        QFETCH(QString, address);
        PanelView panel;
        panel.view->setDefaultUrl(address.startsWith(QLatin1Char('/')) ? missing.toString() : address);
        panel.view->tryload(QUrl());
        QVERIFY(!panel.timer()->isActive());
        QTRY_VERIFY(panel.timer()->isActive());
        QCOMPARE(panel.log(), QStringList()); // a failed probe is no failed page
        QVERIFY(!panel.showsErrorPage());

        panel.load(server->url("/good")); // does not stop the ticking
        panel.clear();
        for (int i = 0; i < 2; ++i) {
            fire(panel);
            QVERIFY(panel.timer()->isActive());
        }
        QCOMPARE(panel.log(), QStringList({tick, onDefault, tick, onDefault}));
        QCOMPARE(panel.text(), "good"_s);
        const int probes = address == "/missing"_s ? 1 : 0;
        QCOMPARE(server->count("/missing"), probes);

        panel.view->handleLoadFinished(false); // a page that fails allows the next probe
        fire(panel);
        QVERIFY(!panel.timer()->isActive());
        QTRY_VERIFY(panel.timer()->isActive()); // which fails, too
        QCOMPARE(server->count("/missing"), 2 * probes);
        QCOMPARE(panel.count(onDefault), 2);
    }

    void forgottenProbe()
    {
        // A page that fails while a probe is out allows a second one; when both are answered, the page is
        // loaded once.
        server->hold("/home", "<p>home</p>");
        PanelView panel;
        panel.view->setDefaultUrl(home.toString());
        fire(panel);
        QTRY_COMPARE(server->count("/home"), 1);
        panel.view->handleLoadFinished(false);
        QVERIFY(panel.timer()->isActive());
        server->serve("/home", "<p>home</p>");
        fire(panel);
        QTRY_COMPARE(panel.text(), "home"_s);
        QCOMPARE(server->count("/home"), 3);
        QCOMPARE(panel.count(loadsHome), 1);
    }

    void probedAddressAsAnswered()
    {
        WebServer::Answer redirect;
        redirect.status = "302 Found";
        redirect.headers = "Location: /good\r\n";
        server->serve("/home", redirect);
        PanelView panel;
        panel.view->setDefaultUrl(home.toString());
        panel.view->tryload(QUrl());
        QTRY_COMPARE(panel.text(), "good"_s); // the view follows where the probe did not
        QCOMPARE(panel.count(loadsHome), 1);
        QCOMPARE(server->count("/good"), 1);
    }

    void repeatedProbes_data()
    {
        // pauses: in seconds
        const Rows<quint16, QList<int>> row("retryTimeout", "pauses");
        row("doubled up to five minutes", 50, QList<int>{50, 100, 200, 300, 300});
        row("never shorter than the retry timeout", 400, QList<int>{400, 400});
        row("never without a pause", 0, QList<int>{1, 2, 4});
    }

    void repeatedProbes()
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
            QCOMPARE(server->count("/missing"), i + 1);
        }
        panel.view->setUrl(missing); // the next failure of a page begins from the start
        QTRY_COMPARE(panel.timer()->interval(), 1000 * pauses.constFirst());
    }

    void repeatedProbeThatSucceeds()
    {
        const ScopedSetting<bool> again("Network", "ProbeAgain", true);
        PanelView panel(1);
        server->refuse("/home", "503 Service Unavailable");
        panel.view->setDefaultUrl(home.toString());
        panel.view->loadUrl(home);
        QTRY_COMPARE(server->count("/home"), 2); // the page, the first probe
        server->serve("/home", "<p>home</p>");
        QTRY_COMPARE(panel.text(), "home"_s);
        QCOMPARE(server->count("/home"), 4);
        QCOMPARE(panel.count(onDefault), 0);
        QVERIFY(!panel.timer()->isActive());
    }

    void anotherPageEndsRepeatedProbes_data()
    {
        const Rows<PageChange> row("change");
        row("loadUrl", &PageChanges::load);
        row("setUrl", &PageChanges::setUrl);
        row("loadRequest", &PageChanges::request);
        row("reloadUrl", &PageChanges::reload);
        row("info page", &PageChanges::showInfo);
    }

    void anotherPageEndsRepeatedProbes()
    {
        QFETCH(PageChange, change);
        const ScopedSetting<bool> again("Network", "ProbeAgain", true);
        PanelView panel;
        panel.load(server->url("/good")); // what reloadUrl() asks for
        server->hold("/home");
        panel.view->setDefaultUrl(home.toString());
        panel.view->handleLoadFinished(false);
        fire(panel);
        QTRY_COMPARE(server->count("/home"), 1);
        panel.view->handleLoadFinished(false);
        change(panel, server->url("/good"));
        QVERIFY(!panel.timer()->isActive());
        QTRY_VERIFY(!panel.showsErrorPage());
        panel.waitForQuiet();
        const QString shown = panel.text();
        server->release("/home"); // the probe's answer comes too late
        QTRY_VERIFY(!server->isConnected("/home"));
        panel.waitForQuiet();
        QCOMPARE(panel.text(), shown);
        QCOMPARE(server->count("/home"), 1);
    }

    void repeatedProbeHasALimit()
    {
        const ScopedSetting<bool> again("Network", "ProbeAgain", true);
        const ScopedSetting<quint16> limit("Network", "PageTimeout", quint16(1));
        server->hold("/home");
        PanelView panel;
        panel.view->setDefaultUrl(home.toString());
        panel.view->tryload(QUrl());
        QTRY_VERIFY(panel.timer()->isActive());
        QCOMPARE(server->count("/home"), 1);
    }

private:
    std::unique_ptr<WebServer> server;
    QUrl home;
    QUrl missing;
    QString loadsHome;
};

QTEST_MAIN(tst_WebViewRetry)
#include "tst_webview_retry.moc"
