// SPDX-License-Identifier: MIT
#include <memory>

#include <QSignalSpy>
#include <QTest>

#include "networkaccessmanager.h"
#include "panelview.h"
#include "screensaver.h"
#include "webserver.h"

using namespace Varnel;

/// Loading, the address on screen, the language, and what counts as a failure.
class tst_WebView : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void afterConstruction();
    void textCannotBeSelected();
    void loadUrl();
    void loadRequest();
    void reloadUrl();
    void addressOnScreen();
    void pageTellsTheAddressAtOnce();
    void language();
    void downloadWishesAreIgnored();
    void failures_data();
    void failures();
    void failedPart_data();
    void failedPart();
    void brokenPages_data();
    void brokenPages();
    void darkScreenTakesNoInput();

private:
    std::unique_ptr<WebServer> server;
};

namespace {

const QString pagePath = QStringLiteral("/page.html");
const QString fail = QStringLiteral("WebView::handleLoadFinished() -> fail");

QString loadLine(const char* what, const QUrl& url)
{
    return QStringLiteral("WebView::%1()  \"%2\"").arg(QLatin1String(what), url.toString());
}

} // namespace

void tst_WebView::init()
{
    server = std::make_unique<WebServer>();
    server->serve(pagePath, QByteArray("<p>page</p>"));
    server->serve(QStringLiteral("/other.html"), QByteArray("<p>other</p>"));
}

void tst_WebView::cleanup()
{
    server.reset();
}

void tst_WebView::afterConstruction()
{
    PanelView panel;
    QVERIFY(panel.view->hasMouseTracking());
    QCOMPARE(panel.view->page(), panel.page());
    QVERIFY(panel.page()->forwardUnsupportedContent());
    QCOMPARE(panel.view->url(), QUrl());
    QVERIFY(panel.page()->networkAccessManager() == panel.window.getNetworkAccessManager());
}

void tst_WebView::textCannotBeSelected()
{
    PanelView panel;
    QCOMPARE(panel.page()->settings()->userStyleSheetUrl().toString(),
             QStringLiteral("data:text/css;charset=utf-8;base64,"
                            "Ym9keSB7IC13ZWJraXQtdXNlci1zZWxlY3Q6IG5vbmU7IH0="));
    panel.load(server->url(pagePath));
    QTRY_COMPARE(panel.frame()
                     ->evaluateJavaScript(QStringLiteral("getComputedStyle(document.body).webkitUserSelect"))
                     .toString(),
                 QStringLiteral("none"));
}

void tst_WebView::loadUrl()
{
    PanelView panel;
    panel.load(server->url(pagePath));
    QCOMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(panel.log(), QStringList{loadLine("loadUrl", server->url(pagePath))});
    QCOMPARE(server->count(pagePath), 1);
    QVERIFY(!panel.timer()->isActive());
    QCOMPARE(panel.timer()->timerType(), Qt::PreciseTimer);
}

void tst_WebView::loadRequest()
{
    PanelView panel;
    QNetworkRequest request(server->url(pagePath));
    request.setRawHeader("X-Of-The-Caller", "kept");
    panel.view->loadRequest(request);
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(panel.log(), QStringList{QStringLiteral("WebView::loadRequest")});
    QCOMPARE(server->last(pagePath).method, QByteArray("GET"));
    QCOMPARE(server->last(pagePath).headers.value("x-of-the-caller"), QByteArray("kept"));
    QVERIFY(server->last(pagePath).body.isEmpty());
}

void tst_WebView::reloadUrl()
{
    PanelView panel;
    panel.load(server->url(pagePath));
    // The address last asked for, not the one that a link led to.
    panel.frame()->evaluateJavaScript(QStringLiteral("location.href = '/other.html'"));
    QTRY_COMPARE(panel.text(), QStringLiteral("other"));
    panel.clear();
    panel.view->reloadUrl();
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(panel.log(), QStringList{loadLine("reloadUrl", server->url(pagePath))});

    panel.view->loadRequest(QNetworkRequest(server->url(QStringLiteral("/other.html"))));
    QTRY_COMPARE(panel.text(), QStringLiteral("other"));
    panel.clear();
    panel.view->reloadUrl();
    QCOMPARE(panel.log(), QStringList{loadLine("reloadUrl", server->url(QStringLiteral("/other.html")))});
    QTRY_COMPARE(server->count(QStringLiteral("/other.html")), 3);
}

void tst_WebView::addressOnScreen()
{
    WebServer::Answer silent;
    silent.silent = true;
    silent.headers = "Content-Type: text/html\r\n";
    silent.body = "<p>late</p>";
    server->serve(QStringLiteral("/late"), silent);
    PanelView panel;
    panel.view->loadUrl(server->url(QStringLiteral("/late")));
    QTRY_COMPARE(server->count(QStringLiteral("/late")), 1);
    QCOMPARE(panel.view->url(), server->url(QStringLiteral("/late"))); // nothing is committed yet
    server->release(QStringLiteral("/late"));
    QTRY_COMPARE(panel.text(), QStringLiteral("late"));
    QCOMPARE(panel.view->url(), server->url(QStringLiteral("/late")));

    panel.frame()->evaluateJavaScript(QStringLiteral("location.href = '/page.html'"));
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(panel.view->url(), server->url(pagePath));
}

void tst_WebView::pageTellsTheAddressAtOnce()
{
    PanelView panel;
    QSignalSpy changed(panel.view, &QWebView::urlChanged);
    panel.view->loadUrl(server->url(pagePath));
    // Before the server could answer: this is the page's word, not the engine's.
    QCOMPARE(server->requests().size(), 0);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed.at(0).at(0).toUrl(), server->url(pagePath));
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
}

void tst_WebView::language()
{
    PanelView panel;
    panel.load(server->url(pagePath));
    panel.clear();
    panel.view->setLanguage(QStringLiteral("default"));
    QCOMPARE(panel.log(), QStringList());
    panel.view->setLanguage(QStringLiteral("fr"));
    panel.view->setLanguage(QStringLiteral("fr"));
    QCOMPARE(panel.log(), QStringList{QStringLiteral("wv: Set language to \"fr\" (was \"default\" )")});
    panel.view->setLanguage(QString());
    QCOMPARE(panel.log().constLast(), QStringLiteral("wv: Set language to \"\" (was \"fr\" )"));
    QCOMPARE(panel.log().size(), 2);
    panel.view->setLanguage(QStringLiteral("de"));
    // The page stays; the next error page follows.
    QCOMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(server->count(pagePath), 1);
    panel.clear();
    panel.view->handleLoadFinished(false);
    QCOMPARE(panel.log(), (QStringList{fail, QStringLiteral("wv: Load error page ( \"de\" )"),
                                       QStringLiteral("\"/usr/local/share/de\"")}));
}

void tst_WebView::downloadWishesAreIgnored()
{
    PanelView panel;
    panel.load(server->url(pagePath));
    panel.clear();
    emit panel.page()->downloadRequested(QNetworkRequest(server->url(QStringLiteral("/other.html"))));
    panel.view->downloadRequested(QNetworkRequest(server->url(QStringLiteral("/other.html"))));
    panel.waitForQuiet();
    QCOMPARE(panel.log(), QStringList());
    QCOMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(server->requests().size(), 1);
}

void tst_WebView::failures_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::newRow("401") << QByteArray("401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"controller\"");
    QTest::newRow("403") << QByteArray("403 Forbidden");
    QTest::newRow("404") << QByteArray("404 Not Found");
    QTest::newRow("500") << QByteArray("500 Internal Server Error");
    QTest::newRow("503") << QByteArray("503 Service Unavailable");
    QTest::newRow("no server listens") << QByteArray();
}

void tst_WebView::failures()
{
    QFETCH(QByteArray, status);
    PanelView panel;
    panel.load(server->url(QStringLiteral("/other.html")));
    QCOMPARE(panel.text(), QStringLiteral("other"));
    if (status.isEmpty()) {
        server->close();
    } else {
        server->refuse(pagePath, status);
    }
    panel.clear();
    panel.view->loadUrl(server->url(pagePath));
    QTRY_VERIFY(panel.showsErrorPage());
    panel.waitForQuiet();
    QVERIFY(panel.showsErrorPage());
    const QStringList log = panel.log();
    QCOMPARE(log.size(), 6);
    QCOMPARE(log.at(0), loadLine("loadUrl", server->url(pagePath)));
    QVERIFY(log.at(1).startsWith(
        QStringLiteral("TIME - Request '%1' failed: ").arg(server->url(pagePath).toString())));
    QCOMPARE(log.mid(2), (QStringList{QStringLiteral("HTTP ERROR"), fail,
                                      QStringLiteral("wv: Load error page ( \"default\" )"),
                                      QStringLiteral("\"/usr/local/share/default\"")}));
    QVERIFY(panel.timer()->isActive());
}

void tst_WebView::failedPart_data()
{
    QTest::addColumn<QByteArray>("part");
    QTest::newRow("picture") << QByteArray("<img src='/missing'>");
    QTest::newRow("style sheet") << QByteArray("<link rel='stylesheet' href='/missing'>");
    QTest::newRow("script") << QByteArray("<script src='/missing'></script>");
    QTest::newRow("frame") << QByteArray("<iframe src='/missing'></iframe>");
    QTest::newRow("request of a script")
        << QByteArray("<script>var r = new XMLHttpRequest; r.open('GET', '/missing'); r.send();</script>");
    QTest::newRow("three pictures") << QByteArray(
        "<img src='/missing'><img src='/missing?2'><img src='/missing?3'>");
}

void tst_WebView::failedPart()
{
    QFETCH(QByteArray, part);
    server->serve(QStringLiteral("/parts.html"),
                  "<html><body><p>page with parts</p>" + part + "</body></html>");
    PanelView panel;
    panel.view->loadUrl(server->url(QStringLiteral("/parts.html")));
    QTRY_VERIFY(panel.showsErrorPage());
    panel.waitForQuiet();
    QVERIFY(panel.showsErrorPage());
    QVERIFY(panel.count(fail) >= 1);
    QVERIFY(panel.timer()->isActive());
    QCOMPARE(panel.timer()->isSingleShot(), true);
}

void tst_WebView::brokenPages_data()
{
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<bool>("errorPage");
    QTest::newRow("breaks off: error page")
        << QByteArray("Content-Type: text/html\r\nContent-Length: 1000\r\n") << true;
    QTest::newRow("redirects to itself: no crash, the view stays usable")
        << QByteArray("Content-Type: text/html\r\nLocation: /broken\r\n") << false;
}

void tst_WebView::brokenPages()
{
    QFETCH(QByteArray, headers);
    QFETCH(bool, errorPage);
    WebServer::Answer answer;
    answer.headers = headers;
    answer.body = "<p>half a page";
    answer.withLength = !headers.contains("Content-Length");
    if (headers.contains("Location")) {
        answer.status = "302 Found";
    }
    server->serve(QStringLiteral("/broken"), answer);
    PanelView panel;
    panel.load(server->url(QStringLiteral("/broken")));
    if (errorPage) {
        QTRY_VERIFY(panel.showsErrorPage());
    }
    QVERIFY2(server->count(QStringLiteral("/broken")) < 100, "the redirect is followed without end");
    panel.load(server->url(pagePath));
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
}

void tst_WebView::darkScreenTakesNoInput()
{
    server->serve(pagePath, QByteArray("<html><body onkeydown='document.title += event.keyCode + \" \"'>"
                                       "<input id='first'><input id='second'></body></html>"));
    PanelView panel;
    panel.window.openUrlForce(server->url(pagePath).toString(), true);
    QTRY_VERIFY(panel.view->isVisible());
    panel.waitForQuiet();
    panel.window.activateWindow();
    panel.view->setFocus();
    QVERIFY(QTest::qWaitForWindowActive(&panel.window));
    QVERIFY(panel.view->hasFocus());
    panel.frame()->evaluateJavaScript(QStringLiteral("document.getElementById('first').focus()"));

    QVERIFY(ScreenSaver::instance()->active());
    ScreenSaver::instance()->activate(false);
    QVERIFY(!panel.view->isEnabled());
    // Qt moves the focus off a widget that is switched off; the engine would make a Tab key of that.
    QCOMPARE(panel.frame()->title(), QString());
    ScreenSaver::instance()->activate(true);
    QVERIFY(panel.view->isEnabled());
    QCOMPARE(panel.frame()->title(), QString());
    QCOMPARE(panel.frame()->evaluateJavaScript(QStringLiteral("document.activeElement.id")).toString(),
             QStringLiteral("first"));
}

QTEST_MAIN(tst_WebView)
#include "tst_webview.moc"
