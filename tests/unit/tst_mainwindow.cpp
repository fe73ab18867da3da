// SPDX-License-Identifier: MIT
#include <memory>

#include <QKeyEvent>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

#include "networkaccessmanager.h"
#include "panelview.h"
#include "screensaver.h"
#include "webserver.h"

using namespace Varnel;

/// The window: what it shows when, and which addresses it accepts.
class tst_MainWindow : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void afterConstruction();
    void form();
    void openUrl();
    void openUrlOfTheCurrentPage();
    void openUrlRefuses_data();
    void openUrlRefuses();
    void openUrlShowsFailuresToo();
    void addressIsLoggedAsItIs();
    void reloadUrl();
    void openUrlForce();
    void openUrlForceChoosesTheAddress_data();
    void openUrlForceChoosesTheAddress();
    void openUrlForceWithoutAnyAddress();
    void openUrlForceAfterAnother();
    void defaultUrlIsTheViews();
    void language();
    void keysAreSwallowed();

private:
    std::unique_ptr<WebServer> server;
};

namespace {

/// A page that comes only when the test lets it, so that nothing that is shown before can be missed.
WebServer::Answer onRelease(const QByteArray& html)
{
    WebServer::Answer answer;
    answer.silent = true;
    answer.headers = "Content-Type: text/html\r\n";
    answer.body = html;
    return answer;
}

const QString pagePath = QStringLiteral("/index.html");

QLabel* label(const PanelView& panel)
{
    return panel.window.findChild<QLabel*>(QStringLiteral("lblProgress"));
}

bool showsLabel(const PanelView& panel)
{
    return label(panel)->isVisible() && !panel.view->isVisible();
}

bool showsView(const PanelView& panel)
{
    return !label(panel)->isVisible() && panel.view->isVisible();
}

QString openLine(const QString& url)
{
    return QStringLiteral("MainWindow::openUrl  \"") + url + QLatin1Char('"');
}

QString forceLine(const QString& url)
{
    return QStringLiteral("MainWindow::openUrlForce  \"") + url + QLatin1Char('"');
}

QString buzzerLine(const QString& url)
{
    return QStringLiteral("TIME - Stop buzzer server: ") + url;
}

} // namespace

void tst_MainWindow::init()
{
    server = std::make_unique<WebServer>();
    server->serve(pagePath, QByteArray("<p>page</p>"));
    server->serve(QStringLiteral("/other.html"), QByteArray("<p>other</p>"));
}

void tst_MainWindow::cleanup()
{
    server.reset();
}

void tst_MainWindow::afterConstruction()
{
    const ScopedSetting<QString> text("UI", "MsgWaitingForNetworkConfiguration", QStringLiteral("Wait %1!"));
    PanelView panel;
    QVERIFY(showsLabel(panel));
    QCOMPARE(label(panel)->text(), QStringLiteral("Wait %1!"));
    QCOMPARE(panel.window.getLanguage(), QStringLiteral("default"));
    QVERIFY(panel.window.hasMouseTracking());
    QVERIFY(panel.window.windowFlags().testFlag(Qt::FramelessWindowHint));
    QCOMPARE(panel.window.windowType(), Qt::Dialog);
    QVERIFY(ScreenSaver::instance()->active());
    const auto* const timer = panel.window.findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
    QVERIFY(timer && timer->isActive() && !timer->isSingleShot());
    QCOMPARE(timer->interval(), 2000);
    QCOMPARE(timer->timerType(), Qt::PreciseTimer);
    QCOMPARE(panel.view->url(), QUrl());
}

void tst_MainWindow::form()
{
    MainWindow window;
    QCOMPARE(window.objectName(), QStringLiteral("MainWindow"));
    QCOMPARE(window.windowTitle(), QStringLiteral("VarnelBrowser"));
    QCOMPARE(window.size(), QSize(400, 300));
    QCOMPARE(window.centralWidget()->objectName(), QStringLiteral("centralWidget"));
    const auto* const layout = qobject_cast<QVBoxLayout*>(window.centralWidget()->layout());
    QVERIFY(layout);
    QCOMPARE(layout->objectName(), QStringLiteral("verticalLayout"));
    QCOMPARE(layout->spacing(), 6);
    QCOMPARE(layout->contentsMargins(), QMargins(0, 0, 0, 0));
    QCOMPARE(layout->count(), 2);
    const auto* const progress = qobject_cast<QLabel*>(layout->itemAt(0)->widget());
    QVERIFY(progress);
    QCOMPARE(progress->objectName(), QStringLiteral("lblProgress"));
    QCOMPARE(progress->font().pointSize(), 16);
    QCOMPARE(progress->alignment(), Qt::Alignment(Qt::AlignCenter));
    QCOMPARE(layout->itemAt(1)->widget(), window.findChild<WebView*>());
    QCOMPARE(layout->stretch(1), 0);
}

void tst_MainWindow::openUrl()
{
    const ScopedSetting<QString> text("UI", "MsgConnecting", QStringLiteral("Connecting..."));
    server->serve(pagePath, onRelease("<p>page</p>"));
    PanelView panel;
    WebBrowser& browser = panel.window; // as whoever only asks for a page sees it
    const QString url = server->url(pagePath).toString();
    browser.openUrl(url);
    // Nothing is loaded before the caller is back in the event loop.
    QCOMPARE(panel.log(), (QStringList{openLine(url), buzzerLine(url)}));
    QCOMPARE(label(panel)->text(), Settings::getUIMsgWaitingForNetworkConfiguration());

    QTRY_COMPARE(server->count(pagePath), 1);
    QCOMPARE(label(panel)->text(), QStringLiteral("Connecting..."));
    QVERIFY(showsLabel(panel));
    server->release(pagePath);
    QTRY_VERIFY(showsView(panel));
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(panel.log(), (QStringList{openLine(url), buzzerLine(url), QStringLiteral("Downloading ") + url,
                                       QStringLiteral("WebView::loadRequest")}));
}

void tst_MainWindow::openUrlOfTheCurrentPage()
{
    PanelView panel;
    const QString url = server->url(pagePath).toString();
    panel.window.openUrl(url);
    QTRY_VERIFY(showsView(panel));
    panel.clear();
    panel.window.openUrl(url);
    panel.waitForQuiet();
    QCOMPARE(panel.log(), (QStringList{openLine(url), QStringLiteral("Can't open url ( \"%1\" )").arg(url)}));
    QCOMPARE(server->count(pagePath), 1);
    QVERIFY(showsView(panel));

    panel.window.openUrl(server->url(QStringLiteral("/other.html")).toString());
    QTRY_COMPARE(panel.text(), QStringLiteral("other"));
    panel.window.openUrl(url); // no longer the current one
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
}

void tst_MainWindow::openUrlRefuses_data()
{
    QTest::addColumn<QString>("url");
    QTest::newRow("empty") << QString();
    QTest::newRow("0.0.0.0") << QStringLiteral("0.0.0.0");
}

void tst_MainWindow::openUrlRefuses()
{
    QFETCH(QString, url);
    PanelView panel;
    panel.window.openUrl(url);
    QCoreApplication::processEvents();
    QCOMPARE(panel.log(), (QStringList{openLine(url), QStringLiteral("Can't open url ( \"\" )")}));
    QVERIFY(showsLabel(panel));
    QCOMPARE(label(panel)->text(), Settings::getUIMsgWaitingForNetworkConfiguration());

    panel.window.openUrl(server->url(pagePath).toString());
    QTRY_VERIFY(showsView(panel));
    panel.clear();
    panel.window.openUrl(url);
    QCoreApplication::processEvents();
    QCOMPARE(
        panel.log(),
        (QStringList{openLine(url),
                     QStringLiteral("Can't open url ( \"%1\" )").arg(server->url(pagePath).toString())}));
    QVERIFY(showsView(panel));
}

void tst_MainWindow::openUrlShowsFailuresToo()
{
    PanelView panel;
    panel.window.openUrl(server->url(QStringLiteral("/missing")).toString());
    QTRY_VERIFY(showsView(panel));
    QTRY_VERIFY(panel.showsErrorPage());
}

void tst_MainWindow::addressIsLoggedAsItIs()
{
    PanelView panel;
    const QString url = server->url(QStringLiteral("/a%2Fb?c=%251&d=%25s")).toString();
    panel.window.openUrl(url);
    QTRY_VERIFY(panel.log().contains(QStringLiteral("Downloading ") + url));
    QVERIFY(panel.log().contains(buzzerLine(url)));
    QTRY_COMPARE(server->requests().size(), 1);
    QCOMPARE(server->requests().constFirst().path, QByteArray("/a%2Fb?c=%251&d=%25s"));
}

void tst_MainWindow::reloadUrl()
{
    PanelView panel;
    WebBrowser& browser = panel.window;
    browser.reloadUrl();
    QCoreApplication::processEvents();
    QCOMPARE(panel.log(), QStringList());

    const QString url = server->url(pagePath).toString();
    panel.window.openUrl(url);
    QTRY_VERIFY(showsView(panel));
    panel.clear();
    server->serve(pagePath, onRelease("<p>page</p>"));
    browser.reloadUrl();
    QVERIFY(showsView(panel));
    QTRY_COMPARE(server->count(pagePath), 2);
    QVERIFY(showsLabel(panel));
    QCOMPARE(label(panel)->text(), Settings::getUIMsgConnecting());
    server->release(pagePath);
    QTRY_VERIFY(showsView(panel));
    QCOMPARE(panel.log(),
             (QStringList{QStringLiteral("Downloading ") + url, QStringLiteral("WebView::loadRequest")}));
}

void tst_MainWindow::openUrlForce()
{
    server->serve(QStringLiteral("/late"), onRelease("<p>late</p>"));
    PanelView panel;
    QSignalSpy first(panel.window.getNetworkAccessManager(), &NetworkAccessManager::firstRequestStatus);
    const QString url = server->url(QStringLiteral("/late")).toString();
    panel.window.openUrlForce(url, true);
    QTRY_COMPARE(server->count(QStringLiteral("/late")), 1);
    // The waiting label stays as it is until the first answer.
    QVERIFY(showsLabel(panel));
    QCOMPARE(label(panel)->text(), Settings::getUIMsgWaitingForNetworkConfiguration());
    server->release(QStringLiteral("/late"));
    QTRY_VERIFY(showsView(panel));
    QTRY_COMPARE(panel.text(), QStringLiteral("late"));
    QCOMPARE(panel.log(), (QStringList{forceLine(url), buzzerLine(url)}));
    QCOMPARE(first.size(), 1);

    // No new first request is awaited.
    panel.window.openUrlForce(server->url(pagePath).toString(), false);
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(first.size(), 1);
}

void tst_MainWindow::openUrlForceChoosesTheAddress_data()
{
    QTest::addColumn<QString>("path"); ///< "-" means an empty address, "0" 0.0.0.0
    QTest::addColumn<bool>("force");
    QTest::addColumn<bool>("loads");
    QTest::newRow("the current page: refused") << pagePath << false << false;
    QTest::newRow("the current page, forced: loaded") << pagePath << true << true;
    QTest::newRow("another page: loaded") << QStringLiteral("/other.html") << false << true;
    QTest::newRow("another page, forced: loaded") << QStringLiteral("/other.html") << true << true;
    QTest::newRow("empty: the last page, which is the current one: refused")
        << QStringLiteral("-") << false << false;
    QTest::newRow("empty, forced: the last page is loaded") << QStringLiteral("-") << true << true;
    QTest::newRow("0.0.0.0: refused") << QStringLiteral("0") << false << false;
    QTest::newRow("0.0.0.0, forced: refused") << QStringLiteral("0") << true << false;
}

void tst_MainWindow::openUrlForceChoosesTheAddress()
{
    QFETCH(QString, path);
    QFETCH(bool, force);
    QFETCH(bool, loads);
    PanelView panel;
    const QString page = server->url(pagePath).toString();
    panel.window.openUrlForce(page, true);
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    panel.clear();
    server->clear();

    QString url = server->url(path).toString();
    if (path == QLatin1String("-")) {
        url.clear();
    } else if (path == QLatin1String("0")) {
        url = QStringLiteral("0.0.0.0");
    }
    panel.window.openUrlForce(url, force);
    if (loads) {
        const QString loaded = url.isEmpty() ? page : url;
        QTRY_COMPARE(server->requests().size(), 1);
        QCOMPARE(server->url(server->requests().constFirst().path).toString(), loaded);
        QCOMPARE(panel.log(), (QStringList{forceLine(url), buzzerLine(loaded)}));
    } else {
        panel.waitForQuiet();
        QCOMPARE(server->requests().size(), 0);
        QCOMPARE(panel.log(),
                 (QStringList{forceLine(url),
                              QStringLiteral("Can't open url ( %1 ,  \"%2\" )")
                                  .arg(force ? QStringLiteral("true") : QStringLiteral("false"), page)}));
    }
}

void tst_MainWindow::openUrlForceWithoutAnyAddress()
{
    PanelView panel;
    panel.window.setLanguage(QStringLiteral("fr"));
    panel.clear();
    panel.window.openUrlForce(QString(), true);
    panel.waitForQuiet();
    QVERIFY(panel.showsErrorPage());
    QCOMPARE(panel.log(), (QStringList{forceLine(QString()), QStringLiteral("wv: Load error page ( \"fr\" )"),
                                       QStringLiteral("\"/usr/local/share/fr\""),
                                       QStringLiteral("Can't open url ( true ,  \"\" )")}));
    QCOMPARE(server->requests().size(), 0);
}

void tst_MainWindow::openUrlForceAfterAnother()
{
    // openUrl changes the current page, not the last one of openUrlForce.
    PanelView panel;
    panel.window.openUrlForce(server->url(pagePath).toString(), false);
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    panel.window.openUrl(server->url(QStringLiteral("/other.html")).toString());
    QTRY_COMPARE(panel.text(), QStringLiteral("other"));
    panel.window.openUrlForce(QString(), false);
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(server->count(pagePath), 2);
}

void tst_MainWindow::defaultUrlIsTheViews()
{
    PanelView panel;
    panel.window.setDefaultUrl(server->url(pagePath).toString());
    QCOMPARE(panel.log(), QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(server->requests().size(), 0);
    panel.view->tryload(QUrl());
    QTRY_COMPARE(server->count(pagePath), 2); // the probe and the page
}

void tst_MainWindow::language()
{
    PanelView panel;
    panel.window.setLanguage(QStringLiteral("default"));
    QCOMPARE(panel.log(), QStringList());
    panel.window.setLanguage(QStringLiteral("fr"));
    panel.window.setLanguage(QStringLiteral("fr"));
    QCOMPARE(panel.window.getLanguage(), QStringLiteral("fr"));
    QCOMPARE(panel.log(), (QStringList{QStringLiteral("Set language to \"fr\" (was \"default\" )"),
                                       QStringLiteral("wv: Set language to \"fr\" (was \"default\" )")}));
    panel.clear();
    panel.window.displayError(QStringLiteral("de")); // the view's own language counts
    panel.waitForQuiet();
    QCOMPARE(panel.log().constFirst(), QStringLiteral("wv: Load error page ( \"fr\" )"));
}

void tst_MainWindow::keysAreSwallowed()
{
    server->serve(pagePath,
                  QByteArray("<html><body onkeydown='document.title += \"k\"'><input id='i'></body></html>"));
    PanelView panel;
    panel.window.openUrlForce(server->url(pagePath).toString(), true);
    QTRY_VERIFY(showsView(panel));
    for (const int key :
         {Qt::Key_A, Qt::Key_Escape, Qt::Key_Backspace, Qt::Key_F5, Qt::Key_Back, Qt::Key_Tab}) {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, QStringLiteral("a"));
        QApplication::sendEvent(&panel.window, &press);
        QVERIFY(press.isAccepted()); // a widget that has no use for a key passes it on
    }
    panel.waitForQuiet();
    QCOMPARE(panel.frame()->title(), QString());
    QVERIFY(panel.window.isVisible()); // a dialog would close on Escape
    QCOMPARE(server->count(pagePath), 1);
}

QTEST_MAIN(tst_MainWindow)
#include "tst_mainwindow.moc"
