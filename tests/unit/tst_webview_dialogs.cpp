// SPDX-License-Identifier: MIT
#include <memory>

#include <QApplication>
#include <QMessageBox>
#include <QNetworkReply>
#include <QPushButton>
#include <QTimer>

#include "dialogdriver.h"
#include "networkaccessmanager.h"
#include "panelview.h"
#include "rows.h"
#include "webserver.h"

using namespace Varnel;

namespace {

const QString anyDialog; ///< the dialogs of scripts have no names

void answerYes(QDialog* dialog)
{
    if (auto* const box = qobject_cast<QMessageBox*>(dialog)) {
        box->button(QMessageBox::Ok)->click();
    } else {
        dialog->accept();
    }
}

} // namespace

/// The dialogs that a page's scripts open (alert, confirm, prompt), and a panel that goes to another page
/// while one of them is open.
class tst_WebViewDialogs : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server = std::make_unique<WebServer>();
        server->serve("/next", "<p>the next page</p>");
    }

    void answerReachesScript_data()
    {
        const Rows<QByteArray, QString> row("script", "text");
        row("alert: script continues", "alert('A'); document.write('on')", "on"_s);
        row("confirm: true", "document.write(confirm('C'))", "true"_s);
        row("prompt: the text", "document.write(prompt('P', 'seven'))", "seven"_s);
    }

    void answerReachesScript()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, text);
        server->serve("/index", "<script>" + script + "</script>");
        PanelView panel;
        DialogDriver user;
        user.onWaiting(anyDialog, &answerYes);
        panel.load(server->url("/index"));
        QCOMPARE(user.seen().size(), 1);
        QCOMPARE(panel.text(), text);
    }

    void replyOutlivesDialog_data()
    {
        const Rows<QByteArray> row("contentType");
        row("XHTML", "application/xhtml+xml");
        row("a picture with a script", "image/svg+xml");
    }

    // The script of an XML page runs while the engine takes the page from its reply, which may end meanwhile.
    void replyOutlivesDialog()
    {
        QFETCH(QByteArray, contentType);
        const QByteArray head = "<html xmlns='http://www.w3.org/1999/xhtml'><script>alert('A');"
                                "document.documentElement.setAttribute('id', 'done');</script>";
        WebServer::Answer answer;
        answer.headers = "Content-Type: " + contentType + "\r\n";
        answer.body = head + "<body></body></html>";
        answer.firstPart = head.size();
        server->serve("/index", answer);
        PanelView panel;
        const auto* const manager = panel.window.getNetworkAccessManager();
        DialogDriver user;
        user.onWaiting(anyDialog, [&](QDialog* dialog) {
            connect(manager, &QNetworkAccessManager::finished, dialog, [dialog] {
                // Behind the turn in which the reply would be deleted.
                QTimer::singleShot(
                    0, dialog, [dialog] { QTimer::singleShot(0, dialog, [dialog] { answerYes(dialog); }); });
            });
            server->release("/index");
        });
        panel.load(server->url("/index"));
        QCOMPARE(user.seen().size(), 1);
        QCOMPARE(panel.evaluate("document.documentElement.id").toString(), "done"_s);
        QTRY_COMPARE(manager->findChildren<QNetworkReply*>().size(), 0);
    }

    void changeClosesDialogs_data()
    {
        const Rows<QByteArray, PageChange, QString> row("script", "change", "text");
        const auto error = "Can't find the error page"_s;
        const auto next = "the next page"_s;
        row("alert, link lost", "alert(1)", &PageChanges::showError, error);
        row("confirm, link lost", "confirm(1)", &PageChanges::showError, error);
        row("prompt, link lost", "prompt(1)", &PageChanges::showError, error);
        row("two alerts, link lost", "alert(1); alert(2)", &PageChanges::showError, error);
        row("request failed", "alert(1)", &PageChanges::fail, error);
        row("service link up", "alert(1)", &PageChanges::showInfo, "Can't find the info page"_s);
        row("controller back", "alert(1)", &PageChanges::force, next);
        row("retry", "alert(1)", &PageChanges::load, next);
        row("load by request", "alert(1)", &PageChanges::request, next);
    }

    // A script that runs while the page is being read is the one that the engine does not survive.
    void changeClosesDialogs()
    {
        QFETCH(QByteArray, script);
        QFETCH(PageChange, change);
        QFETCH(QString, text);
        server->serve("/index", "<html><body><script>" + script + "; document.write('more')</script>after" +
                                    "<script>document.write('end')</script></body></html>");
        PanelView panel;
        DialogDriver meanwhile;
        meanwhile.onWaiting(anyDialog, [&](QDialog*) { change(panel, server->url("/next")); });
        panel.view->loadUrl(server->url("/index"));
        QTRY_COMPARE(meanwhile.seen().size(), 1);
        QTRY_VERIFY(panel.text().startsWith(text));
        QVERIFY(QApplication::activeModalWidget() == nullptr);
        QCOMPARE(meanwhile.seen().size(), 1);
    }

    void lastChangeWins()
    {
        server->serve("/index", "<script>alert(1)</script>");
        PanelView panel;
        DialogDriver meanwhile;
        meanwhile.onWaiting(anyDialog, [&](QDialog*) {
            panel.window.displayError(QString());
            panel.window.openUrlForce(server->url("/next").toString(), true);
        });
        panel.view->loadUrl(server->url("/index"));
        QTRY_COMPARE(panel.text(), "the next page"_s);
        QCOMPARE(panel.count("wv: Load error page ( \"default\" )"_s), 1);
    }

    // There may be no user to confirm, and the page changes in any case.
    void beforeUnloadIsNotAsked()
    {
        server->serve("/index", "<script>window.onbeforeunload = function() { return 'stay?'; };"
                                "window.onunload = function() { alert('bye'); };</script>page");
        PanelView panel;
        DialogDriver user;
        user.onWaiting(anyDialog, [](QDialog* dialog) { dialog->reject(); });
        panel.load(server->url("/index"));
        panel.window.displayError(QString());
        QTRY_VERIFY(panel.showsErrorPage());
        QCOMPARE(user.seen().size(), 0);
    }

    void userIsAskedBeforeLeaving()
    {
        server->serve("/index",
                      "<script>window.onbeforeunload = function() { return 'stay?'; };</script>page");
        PanelView panel;
        panel.load(server->url("/index"));
        DialogDriver user;
        user.onWaiting(anyDialog, &answerYes);
        panel.evaluate("location.href = '/next'");
        QTRY_COMPARE(panel.text(), "the next page"_s);
        QCOMPARE(user.seen().size(), 1);
    }

private:
    std::unique_ptr<WebServer> server;
};

QTEST_MAIN(tst_WebViewDialogs)
#include "tst_webview_dialogs.moc"
