// SPDX-License-Identifier: MIT
#include <functional>

#include <QApplication>
#include <QMessageBox>
#include <QNetworkReply>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include "networkaccessmanager.h"
#include "panelview.h"
#include "webserver.h"

using namespace Varnel;

using Act = std::function<void(PanelView&, const WebServer&)>;
Q_DECLARE_METATYPE(Act)

namespace {

const QString indexPath = QStringLiteral("/index.html");

/// Does something as soon as a dialog is on the screen, from the dialog's own event loop.
class OnDialog : public QObject
{
    Q_OBJECT

public:
    explicit OnDialog(std::function<void(QDialog*)> act)
    {
        connect(&timer, &QTimer::timeout, this, [this, act = std::move(act)] {
            auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            if (dialog != nullptr && dialog != last) {
                last = dialog;
                ++seen;
                act(dialog);
            }
        });
        timer.start(0);
    }

    int seen = 0; ///< how many dialogs there were

private:
    QTimer timer;
    QDialog* last = nullptr;
};

bool isDialogOpen()
{
    return QApplication::activeModalWidget() != nullptr;
}

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
    void init();
    void cleanup();
    void answerReachesScript_data();
    void answerReachesScript();
    void replyOutlivesDialog_data();
    void replyOutlivesDialog();
    void changeClosesDialogs_data();
    void changeClosesDialogs();
    void lastChangeWins();
    void beforeUnloadIsNotAsked();
    void userIsAskedBeforeLeaving();

private:
    std::unique_ptr<WebServer> server;
};

void tst_WebViewDialogs::init()
{
    server = std::make_unique<WebServer>();
    server->serve(QStringLiteral("/next"), QByteArray("<p>the next page</p>"));
}

void tst_WebViewDialogs::cleanup()
{
    server.reset();
}

void tst_WebViewDialogs::answerReachesScript_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QString>("text");
    QTest::newRow("alert: script continues") << QByteArray("alert('A'); document.write('on')") << "on";
    QTest::newRow("confirm: true") << QByteArray("document.write(confirm('C'))") << "true";
    QTest::newRow("prompt: the text") << QByteArray("document.write(prompt('P', 'seven'))") << "seven";
}

void tst_WebViewDialogs::answerReachesScript()
{
    QFETCH(QByteArray, script);
    QFETCH(QString, text);
    server->serve(indexPath, "<html><body><script>" + script + "</script></body></html>");
    PanelView panel;
    const OnDialog user(&answerYes);
    panel.load(server->url(indexPath));
    QCOMPARE(user.seen, 1);
    QCOMPARE(panel.text(), text);
}

void tst_WebViewDialogs::replyOutlivesDialog_data()
{
    QTest::addColumn<QByteArray>("contentType");
    QTest::newRow("XHTML") << QByteArray("application/xhtml+xml");
    QTest::newRow("a picture with a script") << QByteArray("image/svg+xml");
}

// The script of an XML page runs while the engine takes the page from its reply, which may end meanwhile.
void tst_WebViewDialogs::replyOutlivesDialog()
{
    QFETCH(QByteArray, contentType);
    const QByteArray head = "<html xmlns='http://www.w3.org/1999/xhtml'><script>alert('A');"
                            "document.documentElement.setAttribute('id', 'done');</script>";
    WebServer::Answer answer;
    answer.headers = "Content-Type: " + contentType + "\r\n";
    answer.body = head + "<body></body></html>";
    answer.firstPart = head.size();
    server->serve(indexPath, answer);
    PanelView panel;
    const auto* const manager = panel.window.getNetworkAccessManager();
    const OnDialog user([&](QDialog* dialog) {
        connect(manager, &QNetworkAccessManager::finished, dialog, [dialog] {
            // Behind the turn in which the reply would be deleted.
            QTimer::singleShot(0, dialog,
                               [dialog] { QTimer::singleShot(0, dialog, [dialog] { answerYes(dialog); }); });
        });
        server->release(indexPath);
    });
    panel.load(server->url(indexPath));
    QCOMPARE(user.seen, 1);
    QCOMPARE(panel.frame()->evaluateJavaScript(QStringLiteral("document.documentElement.id")).toString(),
             QStringLiteral("done"));
    QTRY_COMPARE(manager->findChildren<QNetworkReply*>().size(), 0);
}

void tst_WebViewDialogs::changeClosesDialogs_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<Act>("change");
    QTest::addColumn<QString>("text");
    const Act lose = [](PanelView& panel, const WebServer&) { panel.window.displayError(QString()); };
    const Act fail = [](PanelView& panel, const WebServer&) { panel.view->handleLoadFinished(false); };
    const Act plugIn = [](PanelView& panel, const WebServer&) { panel.view->displayInfoFront(QString()); };
    const Act open = [](PanelView& panel, const WebServer& server) {
        panel.window.openUrlForce(server.url(QStringLiteral("/next")).toString(), true);
    };
    const Act retry = [](PanelView& panel, const WebServer& server) {
        panel.view->loadUrl(server.url(QStringLiteral("/next")));
    };
    const Act request = [](PanelView& panel, const WebServer& server) {
        panel.view->loadRequest(QNetworkRequest(server.url(QStringLiteral("/next"))));
    };
    const QString error = QStringLiteral("Can't find the error page");
    const QString info = QStringLiteral("Can't find the info page");
    const QString next = QStringLiteral("the next page");
    QTest::newRow("alert, link lost: error page") << QByteArray("alert(1)") << lose << error;
    QTest::newRow("confirm, link lost: error page") << QByteArray("confirm(1)") << lose << error;
    QTest::newRow("prompt, link lost: error page") << QByteArray("prompt(1)") << lose << error;
    QTest::newRow("two alerts, link lost: error page") << QByteArray("alert(1); alert(2)") << lose << error;
    QTest::newRow("alert, request failed: error page") << QByteArray("alert(1)") << fail << error;
    QTest::newRow("alert, service link up: info page") << QByteArray("alert(1)") << plugIn << info;
    QTest::newRow("alert, controller back: its page") << QByteArray("alert(1)") << open << next;
    QTest::newRow("alert, retry: its page") << QByteArray("alert(1)") << retry << next;
    QTest::newRow("alert, load by request: its page") << QByteArray("alert(1)") << request << next;
}

// A script that runs while the page is being read is the one that the engine does not survive.
void tst_WebViewDialogs::changeClosesDialogs()
{
    QFETCH(QByteArray, script);
    QFETCH(Act, change);
    QFETCH(QString, text);
    server->serve(indexPath, "<html><body><script>" + script + "; document.write('more')</script>after" +
                                 "<script>document.write('end')</script></body></html>");
    PanelView panel;
    const OnDialog meanwhile([&](QDialog*) { change(panel, *server); });
    panel.view->loadUrl(server->url(indexPath));
    QTRY_COMPARE(meanwhile.seen, 1);
    QTRY_VERIFY(panel.text().startsWith(text));
    QVERIFY(!isDialogOpen());
    QCOMPARE(meanwhile.seen, 1);
}

void tst_WebViewDialogs::lastChangeWins()
{
    server->serve(indexPath, "<html><body><script>alert(1)</script></body></html>");
    PanelView panel;
    const OnDialog meanwhile([&](QDialog*) {
        panel.window.displayError(QString());
        panel.window.openUrlForce(server->url(QStringLiteral("/next")).toString(), true);
    });
    panel.view->loadUrl(server->url(indexPath));
    QTRY_COMPARE(panel.text(), QStringLiteral("the next page"));
    QCOMPARE(panel.count(QStringLiteral("wv: Load error page ( \"default\" )")), 1);
}

// There may be no user to confirm, and the page changes in any case.
void tst_WebViewDialogs::beforeUnloadIsNotAsked()
{
    server->serve(indexPath, "<html><body>page<script>window.onbeforeunload = function() { return 'stay?'; };"
                             "window.onunload = function() { alert('bye'); };</script></body></html>");
    PanelView panel;
    const OnDialog user([](QDialog* dialog) { dialog->reject(); });
    panel.load(server->url(indexPath));
    panel.window.displayError(QString());
    QTRY_VERIFY(panel.showsErrorPage());
    QCOMPARE(user.seen, 0);
}

void tst_WebViewDialogs::userIsAskedBeforeLeaving()
{
    server->serve(indexPath,
                  "<html><body>page<script>"
                  "window.onbeforeunload = function() { return 'stay?'; };</script></body></html>");
    PanelView panel;
    panel.load(server->url(indexPath));
    const OnDialog user(&answerYes);
    panel.frame()->evaluateJavaScript(QStringLiteral("location.href = '/next'"));
    QTRY_COMPARE(panel.text(), QStringLiteral("the next page"));
    QCOMPARE(user.seen, 1);
}

QTEST_MAIN(tst_WebViewDialogs)
#include "tst_webview_dialogs.moc"
