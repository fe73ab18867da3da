// SPDX-License-Identifier: MIT
#include <memory>

#include <QSignalSpy>

#include "networkaccessmanager.h"
#include "panelview.h"
#include "rows.h"
#include "screensaver.h"
#include "webserver.h"

using namespace Varnel;

namespace {

const QString fail = "WebView::handleLoadFinished() -> fail"_s;

QString loadLine(const char* what, const QUrl& url)
{
    return "WebView::%1()  \"%2\""_s.arg(QLatin1String(what), url.toString());
}

} // namespace

/// Loading, the address on screen, the language, and what counts as a failure.
class tst_WebView : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server = std::make_unique<WebServer>();
        server->serve("/page", "<p>page</p>");
        server->serve("/other", "<p>other</p>");
        page = server->url("/page");
        other = server->url("/other");
    }

    void afterConstruction()
    {
        const PanelView panel;
        QVERIFY(panel.view->hasMouseTracking());
        QCOMPARE(panel.view->page(), panel.page());
        QVERIFY(panel.page()->forwardUnsupportedContent());
        QCOMPARE(panel.view->url(), QUrl());
        QVERIFY(panel.page()->networkAccessManager() == panel.window.getNetworkAccessManager());
    }

    void textCannotBeSelected()
    {
        const PanelView panel;
        QCOMPARE(panel.page()->settings()->userStyleSheetUrl().toString(),
                 "data:text/css;charset=utf-8;base64,Ym9keSB7IC13ZWJraXQtdXNlci1zZWxlY3Q6IG5vbmU7IH0="_s);
        panel.load(page);
        QTRY_COMPARE(panel.evaluate("getComputedStyle(document.body).webkitUserSelect").toString(), "none"_s);
    }

    void loadUrl()
    {
        const PanelView panel;
        panel.load(page);
        QCOMPARE(panel.text(), "page"_s);
        QCOMPARE(panel.log(), QStringList{loadLine("loadUrl", page)});
        QCOMPARE(server->count("/page"), 1);
        QVERIFY(!panel.timer()->isActive());
        QCOMPARE(panel.timer()->timerType(), Qt::PreciseTimer);
    }

    void loadRequest()
    {
        const PanelView panel;
        QNetworkRequest request(page);
        request.setRawHeader("X-Of-The-Caller", "kept");
        panel.view->loadRequest(request);
        QTRY_COMPARE(panel.text(), "page"_s);
        QCOMPARE(panel.log(), QStringList{"WebView::loadRequest"_s});
        QCOMPARE(server->last("/page").method, QByteArray("GET"));
        QCOMPARE(server->last("/page").headers.value("x-of-the-caller"), QByteArray("kept"));
        QVERIFY(server->last("/page").body.isEmpty());
    }

    void reloadUrl()
    {
        PanelView panel;
        panel.load(page);
        // The address last asked for, not the one that a link led to.
        panel.evaluate("location.href = '/other'");
        QTRY_COMPARE(panel.text(), "other"_s);
        panel.clear();
        panel.view->reloadUrl();
        QTRY_COMPARE(panel.text(), "page"_s);
        QCOMPARE(panel.log(), QStringList{loadLine("reloadUrl", page)});

        panel.view->loadRequest(QNetworkRequest(other));
        QTRY_COMPARE(panel.text(), "other"_s);
        panel.clear();
        panel.view->reloadUrl();
        QCOMPARE(panel.log(), QStringList{loadLine("reloadUrl", other)});
        QTRY_COMPARE(server->count("/other"), 3);
    }

    void addressOnScreen()
    {
        server->hold("/late", "<p>late</p>");
        const PanelView panel;
        QSignalSpy changed(panel.view, &QWebView::urlChanged);
        panel.view->loadUrl(server->url("/late"));
        // Before the server could answer: this is the page's word, not the engine's.
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.at(0).at(0).toUrl(), server->url("/late"));
        QTRY_COMPARE(server->count("/late"), 1);
        QCOMPARE(panel.view->url(), server->url("/late")); // nothing is committed yet
        server->release("/late");
        QTRY_COMPARE(panel.text(), "late"_s);
        QCOMPARE(panel.view->url(), server->url("/late"));

        panel.evaluate("location.href = '/page'");
        QTRY_COMPARE(panel.text(), "page"_s);
        QCOMPARE(panel.view->url(), page);
    }

    void language()
    {
        PanelView panel;
        panel.load(page);
        panel.clear();
        for (const char* const language : {"default", "fr", "fr", "", "de"}) {
            panel.view->setLanguage(QString::fromLatin1(language));
        }
        QCOMPARE(panel.log(), QStringList({"wv: Set language to \"fr\" (was \"default\" )"_s,
                                           "wv: Set language to \"\" (was \"fr\" )"_s,
                                           "wv: Set language to \"de\" (was \"\" )"_s}));
        // The page stays; the next error page follows.
        QCOMPARE(panel.text(), "page"_s);
        QCOMPARE(server->count("/page"), 1);
        panel.clear();
        panel.view->handleLoadFinished(false);
        QCOMPARE(panel.log(),
                 QStringList({fail, "wv: Load error page ( \"de\" )"_s, "\"/usr/local/share/de\""_s}));
    }

    void downloadWishesAreIgnored()
    {
        PanelView panel;
        panel.load(page);
        panel.clear();
        emit panel.page()->downloadRequested(QNetworkRequest(other));
        panel.view->downloadRequested(QNetworkRequest(other));
        panel.waitForQuiet();
        QCOMPARE(panel.log(), QStringList());
        QCOMPARE(panel.text(), "page"_s);
        QCOMPARE(server->requests().size(), 1);
    }

    void failedPage_data()
    {
        const Rows<QByteArray> row("status");
        row("401", "401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"controller\"");
        row("500", "500 Internal Server Error");
        row("no server listens", {});
    }

    void failedPage()
    {
        QFETCH(QByteArray, status);
        PanelView panel;
        panel.load(other);
        if (status.isEmpty()) {
            server->close();
        } else {
            server->refuse("/page", status);
        }
        panel.clear();
        panel.view->loadUrl(page);
        QTRY_VERIFY(panel.showsErrorPage());
        panel.waitForQuiet();
        QVERIFY(panel.showsErrorPage());
        QStringList log = panel.log();
        QVERIFY(log.value(1).startsWith("TIME - Request '%1' failed: "_s.arg(page.toString())));
        log.removeAt(1);
        QCOMPARE(log,
                 QStringList({loadLine("loadUrl", page), "HTTP ERROR"_s, fail,
                              "wv: Load error page ( \"default\" )"_s, "\"/usr/local/share/default\""_s}));
        QVERIFY(panel.timer()->isActive());
    }

    void failedPart_data()
    {
        const Rows<QByteArray> row("part");
        row("picture", "<img src='/missing'>");
        row("style sheet", "<link rel='stylesheet' href='/missing'>");
        row("script", "<script src='/missing'></script>");
        row("frame", "<iframe src='/missing'></iframe>");
        row("request of a script",
            "<script>var r = new XMLHttpRequest; r.open('GET', '/missing'); r.send();</script>");
    }

    void failedPart()
    {
        QFETCH(QByteArray, part);
        server->serve("/parts", "<html><body><p>page with parts</p>" + part + "</body></html>");
        const PanelView panel;
        panel.view->loadUrl(server->url("/parts"));
        QTRY_VERIFY(panel.showsErrorPage());
        panel.waitForQuiet();
        QVERIFY(panel.showsErrorPage());
        QVERIFY(panel.count(fail) >= 1);
        QVERIFY(panel.timer()->isActive());
    }

    void darkScreenTakesNoInput()
    {
        server->serve("/page", "<html><body onkeydown='document.title += event.keyCode + \" \"'>"
                               "<input id='first'><input id='second'></body></html>");
        PanelView panel;
        panel.window.openUrlForce(page.toString(), true);
        QTRY_VERIFY(panel.view->isVisible());
        panel.waitForQuiet();
        panel.window.activateWindow();
        panel.view->setFocus();
        QVERIFY(QTest::qWaitForWindowActive(&panel.window));
        QVERIFY(panel.view->hasFocus());
        panel.evaluate("document.getElementById('first').focus()");

        QVERIFY(ScreenSaver::instance()->active());
        ScreenSaver::instance()->activate(false);
        QVERIFY(!panel.view->isEnabled());
        // Qt moves the focus off a widget that is switched off; the engine would make a Tab key of that.
        QCOMPARE(panel.frame()->title(), QString());
        ScreenSaver::instance()->activate(true);
        QVERIFY(panel.view->isEnabled());
        QCOMPARE(panel.frame()->title(), QString());
        QCOMPARE(panel.evaluate("document.activeElement.id").toString(), "first"_s);
        QTest::keyClick(panel.view, Qt::Key_Tab);
        QCOMPARE(panel.evaluate("document.activeElement.id").toString(), "second"_s);
    }

private:
    std::unique_ptr<WebServer> server;
    QUrl page;
    QUrl other;
};

QTEST_MAIN(tst_WebView)
#include "tst_webview.moc"
