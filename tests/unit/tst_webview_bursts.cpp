// SPDX-License-Identifier: MIT
#include <memory>

#include "panelview.h"
#include "rows.h"
#include "webserver.h"

using namespace Varnel;

namespace {

const QString fail = "WebView::handleLoadFinished() -> fail"_s;
const QString loadErrorPage = "wv: Load error page ( \"default\" )"_s;

} // namespace

/// Pages whose parts are still on their way when another page takes their place. Cancelling a part reports a
/// failure in the middle of the engine's change of pages, which asks for the error page once more.
class tst_WebViewBursts : public QObject
{
    Q_OBJECT

private slots:
    void init() { server = std::make_unique<WebServer>(); }

    void oneFailureAmongManyPendingParts()
    {
        WebServer::Answer late;
        late.silent = true;
        late.status = "404 Not Found";
        server->serve("/late", late);
        servePendingPage(1000, "<img src='/late'>");
        PanelView panel;
        panel.view->loadUrl(server->url("/index"));
        QTRY_COMPARE(server->count("/late"), 1);
        QTRY_VERIFY(server->requests().size() >= 6); // all that the engine opens to one host are busy
        QVERIFY(!panel.timer()->isActive());

        server->release("/late");
        QTRY_VERIFY(panel.showsErrorPage());
        panel.waitForQuiet();
        QVERIFY(panel.showsErrorPage());
        QVERIFY(panel.timer()->isActive());
        // Every part that was cancelled is one failure more; each asks for the error page.
        QVERIFY2(panel.count(fail) > 6, qPrintable(QString::number(panel.count(fail))));
        QCOMPARE(panel.count(loadErrorPage), panel.count(fail));
        QCOMPARE(panel.count("HTTP ERROR"_s), panel.count(fail));
    }

    void outermostPageWins_data()
    {
        // mainPending: the page itself is unanswered, not its parts
        const Rows<bool, PageChange, QString> add("mainPending", "change", "text");
        const auto row = [&add](const char* name, PageChange change, const char* text) {
            add(qPrintable("parts pending, "_s + QLatin1String(name)), false, change,
                QString::fromLatin1(text));
            add(qPrintable("page pending, "_s + QLatin1String(name)), true, change,
                QString::fromLatin1(text));
        };
        row("another page", &PageChanges::load, "the next page");
        row("another page by request", &PageChanges::request, "the next page");
        row("forced by the window", &PageChanges::force, "the next page");
        row("info page", &PageChanges::showInfo, "Can't find the info page");
        row("error page", &PageChanges::showError, "Can't find the error page");
    }

    void outermostPageWins()
    {
        QFETCH(bool, mainPending);
        QFETCH(PageChange, change);
        QFETCH(QString, text);
        servePendingPage(3);
        if (mainPending) {
            server->hold("/index");
        }
        PanelView panel;
        panel.view->loadUrl(server->url("/index"));
        QTRY_COMPARE(server->requests().size(), mainPending ? 1 : 4);
        QCOMPARE(panel.count(fail), 0);

        change(panel, server->url("/next"));
        QTRY_VERIFY(panel.text().startsWith(text));
        panel.waitForQuiet();
        QVERIFY(panel.text().startsWith(text));
        // A cancelled request has failed: each part is reported, and the retry is due.
        QCOMPARE(panel.count(fail), mainPending ? 1 : 3);
        QVERIFY(panel.timer()->isActive());
    }

    void followedLinkWins()
    {
        servePendingPage(3);
        const PanelView panel;
        panel.view->loadUrl(server->url("/index"));
        QTRY_COMPARE(server->requests().size(), 4);
        panel.evaluate("document.getElementById('next').click()");
        QTRY_COMPARE(panel.text(), "the next page"_s);
        panel.waitForQuiet();
        QCOMPARE(panel.text(), "the next page"_s);
        QCOMPARE(panel.count(fail), 3);
        QVERIFY(panel.timer()->isActive());
    }

    void openRequestsAtTheEnd_data()
    {
        const Rows<bool> row("probing");
        row("the page's parts are open", false);
        row("a probe is open, too", true);
    }

    void openRequestsAtTheEnd()
    {
        QFETCH(bool, probing);
        servePendingPage(20);
        LogRecorder log;
        {
            MainWindow window;
            auto* const view = window.findChild<WebView*>();
            view->loadUrl(server->url("/index"));
            QTRY_VERIFY(server->requests().size() >= 6);
            if (probing) {
                view->setDefaultUrl(server->url("/pending0").toString());
                view->tryload(QUrl());
                QTRY_VERIFY(server->count("/pending0") > 1);
            }
            log.clear();
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
        // The page is destroyed with all open requests, and reports nothing.
        QVERIFY(!log.texts().contains("HTTP ERROR"_s));
        QVERIFY(!log.texts().contains(fail));
    }

private:
    /// A page with `parts` pictures that are never answered.
    void servePendingPage(int parts, const QByteArray& more = {})
    {
        QByteArray html = "<html><body><a id='next' href='/next'>next</a>" + more;
        for (int i = 0; i < parts; ++i) {
            const QByteArray name = "/pending" + QByteArray::number(i);
            html += "<img src='" + name + "'>";
            server->hold(name);
        }
        server->serve("/index", html + "</body></html>");
        server->serve("/next", "<p>the next page</p>");
    }

    std::unique_ptr<WebServer> server;
};

QTEST_MAIN(tst_WebViewBursts)
#include "tst_webview_bursts.moc"
