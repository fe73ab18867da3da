// SPDX-License-Identifier: MIT
#include <functional>

#include <QTest>

#include "panelview.h"
#include "webserver.h"

using namespace Varnel;

using Act = std::function<void(PanelView&, const WebServer&)>;
Q_DECLARE_METATYPE(Act)

/// Pages whose parts are still on their way when another page takes their place. Cancelling a part reports a
/// failure in the middle of the engine's change of pages, which asks for the error page once more.
class tst_WebViewBursts : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void oneFailureAmongManyPendingParts();
    void outermostPageWins_data();
    void outermostPageWins();
    void openRequestsAtTheEnd_data();
    void openRequestsAtTheEnd();

private:
    /// A page with `parts` pictures that are never answered.
    void servePendingPage(int parts, const QByteArray& more = QByteArray());

    std::unique_ptr<WebServer> server;
};

namespace {

const QString indexPath = QStringLiteral("/index.html");
const QString fail = QStringLiteral("WebView::handleLoadFinished() -> fail");
const QString loadErrorPage = QStringLiteral("wv: Load error page ( \"default\" )");

} // namespace

void tst_WebViewBursts::init()
{
    server = std::make_unique<WebServer>();
}

void tst_WebViewBursts::cleanup()
{
    server.reset();
}

void tst_WebViewBursts::servePendingPage(int parts, const QByteArray& more)
{
    WebServer::Answer silent;
    silent.silent = true;
    QByteArray html = "<html><body><a id='next' href='/next'>next</a>" + more;
    for (int i = 0; i < parts; ++i) {
        const QByteArray name = "/pending" + QByteArray::number(i);
        html += "<img src='" + name + "'>";
        server->serve(QString::fromLatin1(name), silent);
    }
    server->serve(indexPath, html + "</body></html>");
    server->serve(QStringLiteral("/next"), QByteArray("<p>the next page</p>"));
}

void tst_WebViewBursts::oneFailureAmongManyPendingParts()
{
    WebServer::Answer late;
    late.silent = true;
    late.status = "404 Not Found";
    server->serve(QStringLiteral("/late"), late);
    servePendingPage(1000, "<img src='/late'>");
    PanelView panel;
    panel.view->loadUrl(server->url(indexPath));
    QTRY_COMPARE(server->count(QStringLiteral("/late")), 1);
    QTRY_VERIFY(server->requests().size() >= 6); // all connections that the engine opens to one host are busy
    QVERIFY(!panel.timer()->isActive());

    server->release(QStringLiteral("/late"));
    QTRY_VERIFY(panel.showsErrorPage());
    panel.waitForQuiet();
    QVERIFY(panel.showsErrorPage());
    QVERIFY(panel.timer()->isActive());
    // Every part that was cancelled is one failure more; each asks for the error page.
    QVERIFY2(panel.count(fail) > 6, qPrintable(QString::number(panel.count(fail))));
    QCOMPARE(panel.count(loadErrorPage), panel.count(fail));
    QCOMPARE(panel.count(QStringLiteral("HTTP ERROR")), panel.count(fail));
}

void tst_WebViewBursts::outermostPageWins_data()
{
    QTest::addColumn<bool>("mainPending"); ///< the page itself is unanswered, not its parts
    QTest::addColumn<Act>("act");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, const Act& act, const char* text) {
        QTest::addRow("parts pending, %s", name) << false << act << QString::fromLatin1(text);
        QTest::addRow("page pending, %s", name) << true << act << QString::fromLatin1(text);
    };
    row(
        "another page: it is shown",
        [](PanelView& panel, const WebServer& server) {
            panel.view->loadUrl(server.url(QStringLiteral("/next")));
        },
        "the next page");
    row(
        "another page by request: it is shown",
        [](PanelView& panel, const WebServer& server) {
            panel.view->loadRequest(QNetworkRequest(server.url(QStringLiteral("/next"))));
        },
        "the next page");
    row(
        "forced by the window: it is shown",
        [](PanelView& panel, const WebServer& server) {
            panel.window.openUrlForce(server.url(QStringLiteral("/next")).toString(), true);
        },
        "the next page");
    row(
        "info page: it is shown",
        [](PanelView& panel, const WebServer&) { panel.view->displayInfoFront(QString()); },
        "Can't find the info page");
    row(
        "error page: it is shown",
        [](PanelView& panel, const WebServer&) { panel.view->displayError(QString()); },
        "Can't find the error page");
    QTest::newRow("parts pending, a link is followed: it is shown")
        << false << Act([](PanelView& panel, const WebServer&) {
               panel.frame()->evaluateJavaScript(QStringLiteral("document.getElementById('next').click()"));
           })
        << QStringLiteral("the next page");
}

void tst_WebViewBursts::outermostPageWins()
{
    QFETCH(bool, mainPending);
    QFETCH(Act, act);
    QFETCH(QString, text);
    servePendingPage(3);
    if (mainPending) {
        WebServer::Answer silent;
        silent.silent = true;
        server->serve(indexPath, silent);
    }
    PanelView panel;
    panel.view->loadUrl(server->url(indexPath));
    QTRY_COMPARE(server->requests().size(), mainPending ? 1 : 4);
    QCOMPARE(panel.count(fail), 0);

    act(panel, *server);
    QTRY_VERIFY(panel.text().startsWith(text));
    panel.waitForQuiet();
    QVERIFY(panel.text().startsWith(text));
    // A cancelled request has failed: each part is reported, and the retry is due.
    QCOMPARE(panel.count(fail), mainPending ? 1 : 3);
    QVERIFY(panel.timer()->isActive());
}

void tst_WebViewBursts::openRequestsAtTheEnd_data()
{
    QTest::addColumn<bool>("probing");
    QTest::newRow("the page's parts are open") << false;
    QTest::newRow("a probe is open, too") << true;
}

void tst_WebViewBursts::openRequestsAtTheEnd()
{
    QFETCH(bool, probing);
    servePendingPage(20);
    LogRecorder log;
    {
        MainWindow window;
        auto* const view = window.findChild<WebView*>();
        view->loadUrl(server->url(indexPath));
        QTRY_VERIFY(server->requests().size() >= 6);
        if (probing) {
            view->setDefaultUrl(server->url(QStringLiteral("/pending0")).toString());
            view->tryload(QUrl());
            QTRY_VERIFY(server->count(QStringLiteral("/pending0")) > 1);
        }
        log.clear();
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
    // Window, view and page are gone, with all open requests; a page that is being destroyed reports nothing.
    const QStringList lines = log.texts();
    QVERIFY2(!lines.contains(QStringLiteral("HTTP ERROR")), qPrintable(lines.join(QLatin1Char('\n'))));
    QVERIFY(!lines.contains(fail));
}

QTEST_MAIN(tst_WebViewBursts)
#include "tst_webview_bursts.moc"
