// SPDX-License-Identifier: MIT
#include <memory>

#include <QKeyEvent>
#include <QLabel>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QVBoxLayout>

#include "networkaccessmanager.h"
#include "panelview.h"
#include "rows.h"
#include "screensaver.h"
#include "webserver.h"

using namespace Varnel;

namespace {

QLabel* label(const PanelView& panel)
{
    return panel.window.findChild<QLabel*>("lblProgress"_s);
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
    return "MainWindow::openUrl  \""_s + url + QLatin1Char('"');
}

QString forceLine(const QString& url)
{
    return "MainWindow::openUrlForce  \""_s + url + QLatin1Char('"');
}

QString buzzerLine(const QString& url)
{
    return "TIME - Stop buzzer server: "_s + url;
}

} // namespace

/// The window: what it shows when, and which addresses it accepts.
class tst_MainWindow : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server = std::make_unique<WebServer>();
        server->serve("/page", "<p>page</p>");
        server->serve("/other", "<p>other</p>");
        page = server->url("/page").toString();
        other = server->url("/other").toString();
    }

    void afterConstruction()
    {
        const ScopedSetting<QString> text("UI", "MsgWaitingForNetworkConfiguration", "Wait %1!"_s);
        PanelView panel;
        QVERIFY(showsLabel(panel));
        QCOMPARE(label(panel)->text(), "Wait %1!"_s);
        QCOMPARE(panel.window.getLanguage(), "default"_s);
        QVERIFY(panel.window.hasMouseTracking());
        QVERIFY(panel.window.windowFlags().testFlag(Qt::FramelessWindowHint));
        QCOMPARE(panel.window.windowType(), Qt::Dialog);
        QVERIFY(ScreenSaver::instance()->active());
        QTest::mousePress(&panel.window, Qt::LeftButton, {}, QPoint(1, 1));
        QVERIFY(panel.log().contains("resetTimer"_s)); // touches keep the screen awake
        const auto* const timer = panel.window.findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
        QVERIFY(timer && timer->isActive() && !timer->isSingleShot());
        QCOMPARE(timer->interval(), 2000);
        QCOMPARE(timer->timerType(), Qt::PreciseTimer);
        QCOMPARE(panel.view->url(), QUrl());
    }

    void metaObject()
    {
        const QMetaObject& meta = MainWindow::staticMetaObject;
        QStringList methods;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            methods << QString::fromLatin1(meta.method(i).methodSignature());
            QCOMPARE(meta.method(i).methodType(), QMetaMethod::Slot);
        }
        QCOMPARE(methods,
                 "startDownload() webViewLoadStarted() webViewLoadFinished() webViewloadProgress(int) "
                 "firstRequestStatus(bool) watchFrontInterface()"_words);
    }

    void form()
    {
        MainWindow window;
        QCOMPARE(window.objectName(), "MainWindow"_s);
        QCOMPARE(window.windowTitle(), "VarnelBrowser"_s);
        QCOMPARE(window.size(), QSize(400, 300));
        QCOMPARE(window.centralWidget()->objectName(), "centralWidget"_s);
        const auto* const layout = qobject_cast<QVBoxLayout*>(window.centralWidget()->layout());
        QVERIFY(layout);
        QCOMPARE(layout->objectName(), "verticalLayout"_s);
        QCOMPARE(layout->spacing(), 6);
        QCOMPARE(layout->contentsMargins(), QMargins(0, 0, 0, 0));
        QCOMPARE(layout->count(), 2);
        const auto* const progress = qobject_cast<QLabel*>(layout->itemAt(0)->widget());
        QVERIFY(progress);
        QCOMPARE(progress->objectName(), "lblProgress"_s);
        QCOMPARE(progress->font().pointSize(), 16);
        QCOMPARE(progress->alignment(), Qt::Alignment(Qt::AlignCenter));
        QCOMPARE(layout->itemAt(1)->widget(), window.findChild<WebView*>());
        QCOMPARE(layout->stretch(1), 0);
    }

    void openUrl()
    {
        const ScopedSetting<QString> text("UI", "MsgConnecting", "Connecting..."_s);
        server->hold("/page", "<p>page</p>");
        PanelView panel;
        WebBrowser& browser = panel.window; // as whoever only asks for a page sees it
        browser.openUrl(page);
        // Nothing is loaded before the caller is back in the event loop.
        QCOMPARE(panel.log(), QStringList({openLine(page), buzzerLine(page)}));
        QCOMPARE(label(panel)->text(), Settings::getUIMsgWaitingForNetworkConfiguration());

        QTRY_COMPARE(server->count("/page"), 1);
        QCOMPARE(label(panel)->text(), "Connecting..."_s);
        QVERIFY(showsLabel(panel));
        server->release("/page");
        QTRY_VERIFY(showsView(panel));
        QTRY_COMPARE(panel.text(), "page"_s);
        QCOMPARE(panel.log(), QStringList({openLine(page), buzzerLine(page), "Downloading "_s + page,
                                           "WebView::loadRequest"_s}));
    }

    void openUrlRefuses()
    {
        PanelView panel;
        for (const QString& url : {QString(), "0.0.0.0"_s}) {
            panel.clear();
            panel.window.openUrl(url);
            QCoreApplication::processEvents();
            QCOMPARE(panel.log(), QStringList({openLine(url), "Can't open url ( \"\" )"_s}));
        }
        QVERIFY(showsLabel(panel));
        QCOMPARE(label(panel)->text(), Settings::getUIMsgWaitingForNetworkConfiguration());

        panel.window.openUrl(page);
        QTRY_VERIFY(showsView(panel));
        for (const QString& url : {QString(), "0.0.0.0"_s, page}) {
            panel.clear();
            panel.window.openUrl(url);
            panel.waitForQuiet();
            QCOMPARE(panel.log(), QStringList({openLine(url), "Can't open url ( \"%1\" )"_s.arg(page)}));
        }
        QCOMPARE(server->count("/page"), 1);
        QVERIFY(showsView(panel));

        panel.window.openUrl(other);
        QTRY_COMPARE(panel.text(), "other"_s);
        panel.window.openUrl(page); // no longer the current one
        QTRY_COMPARE(panel.text(), "page"_s);
    }

    void missingPage()
    {
        PanelView panel;
        const QString url = server->url("/a%2Fb?c=%251&d=%25s").toString();
        panel.window.openUrl(url);
        QTRY_VERIFY(showsView(panel));
        QTRY_VERIFY(panel.showsErrorPage());
        QVERIFY(panel.log().contains("Downloading "_s + url)); // as it is
        QVERIFY(panel.log().contains(buzzerLine(url)));
        QCOMPARE(server->requests().constFirst().path, QByteArray("/a%2Fb?c=%251&d=%25s"));
    }

    void reloadUrl()
    {
        PanelView panel;
        WebBrowser& browser = panel.window;
        browser.reloadUrl();
        QCoreApplication::processEvents();
        QCOMPARE(panel.log(), QStringList());

        panel.window.openUrl(page);
        QTRY_VERIFY(showsView(panel));
        panel.clear();
        server->hold("/page", "<p>page</p>");
        browser.reloadUrl();
        QVERIFY(showsView(panel));
        QTRY_COMPARE(server->count("/page"), 2);
        QVERIFY(showsLabel(panel));
        QCOMPARE(label(panel)->text(), Settings::getUIMsgConnecting());
        server->release("/page");
        QTRY_VERIFY(showsView(panel));
        QCOMPARE(panel.log(), QStringList({"Downloading "_s + page, "WebView::loadRequest"_s}));
    }

    void openUrlForce()
    {
        server->hold("/late", "<p>late</p>");
        PanelView panel;
        QSignalSpy first(panel.window.getNetworkAccessManager(), &NetworkAccessManager::firstRequestStatus);
        const QString url = server->url("/late").toString();
        panel.window.openUrlForce(url, true);
        QTRY_COMPARE(server->count("/late"), 1);
        // The waiting label stays as it is until the first answer.
        QVERIFY(showsLabel(panel));
        QCOMPARE(label(panel)->text(), Settings::getUIMsgWaitingForNetworkConfiguration());
        server->release("/late");
        QTRY_VERIFY(showsView(panel));
        QTRY_COMPARE(panel.text(), "late"_s);
        QCOMPARE(panel.log(), (QStringList{forceLine(url), buzzerLine(url)}));
        QCOMPARE(first.size(), 1);

        // No new first request is awaited.
        panel.window.openUrlForce(page, false);
        QTRY_COMPARE(panel.text(), "page"_s);
        QCOMPARE(first.size(), 1);
    }

    void openUrlForceChoosesTheAddress_data()
    {
        // address: a path of the server, or as it is
        const Rows<QString, bool, bool> row("address", "force", "loads");
        row("the current page: refused", "/page"_s, false, false);
        row("the current page, forced: loaded", "/page"_s, true, true);
        row("another page: loaded", "/other"_s, false, true);
        row("another page, forced: loaded", "/other"_s, true, true);
        row("empty: the last page, which is the current one: refused", ""_s, false, false);
        row("empty, forced: the last page is loaded", ""_s, true, true);
        row("0.0.0.0: refused", "0.0.0.0"_s, false, false);
        row("0.0.0.0, forced: refused", "0.0.0.0"_s, true, false);
    }

    void openUrlForceChoosesTheAddress()
    {
        QFETCH(QString, address);
        QFETCH(bool, force);
        QFETCH(bool, loads);
        PanelView panel;
        panel.window.openUrlForce(page, true);
        QTRY_COMPARE(panel.text(), "page"_s);
        panel.clear();
        server->clear();

        const QString url = address.startsWith(QLatin1Char('/')) ? server->url(address).toString() : address;
        panel.window.openUrlForce(url, force);
        if (loads) {
            const QString loaded = url.isEmpty() ? page : url;
            QTRY_COMPARE(server->requests().size(), 1);
            QCOMPARE(server->url(server->requests().constFirst().path).toString(), loaded);
            QCOMPARE(panel.log(), (QStringList{forceLine(url), buzzerLine(loaded)}));
        } else {
            panel.waitForQuiet();
            QCOMPARE(server->requests().size(), 0);
            const QString refusal = "Can't open url ( %1 ,  \"%2\" )"_s;
            QCOMPARE(panel.log(),
                     QStringList({forceLine(url), refusal.arg(force ? "true"_s : "false"_s, page)}));
        }
    }

    void openUrlForceAfterAnother()
    {
        // openUrl changes the current page, not the last one of openUrlForce.
        PanelView panel;
        panel.window.openUrlForce(page, false);
        QTRY_COMPARE(panel.text(), "page"_s);
        panel.window.openUrl(other);
        QTRY_COMPARE(panel.text(), "other"_s);
        panel.window.openUrlForce(QString(), false);
        QTRY_COMPARE(panel.text(), "page"_s);
        QCOMPARE(server->count("/page"), 2);
    }

    void defaultUrlIsTheViews()
    {
        PanelView panel;
        panel.window.setDefaultUrl(page);
        QCOMPARE(panel.log(), QStringList());
        QCoreApplication::processEvents();
        QCOMPARE(server->requests().size(), 0);
        panel.view->tryload(QUrl());
        QTRY_COMPARE(server->count("/page"), 2); // the probe and the page
    }

    void languageAndTheErrorPage()
    {
        PanelView panel;
        panel.window.setLanguage("default"_s);
        QCOMPARE(panel.log(), QStringList());
        panel.window.setLanguage("fr"_s);
        panel.window.setLanguage("fr"_s);
        QCOMPARE(panel.window.getLanguage(), "fr"_s);
        QCOMPARE(panel.log(), (QStringList{"Set language to \"fr\" (was \"default\" )"_s,
                                           "wv: Set language to \"fr\" (was \"default\" )"_s}));
        panel.clear();
        panel.window.openUrlForce(QString(), true); // there is no page yet
        panel.waitForQuiet();
        QVERIFY(panel.showsErrorPage());
        QCOMPARE(panel.log(),
                 QStringList({forceLine(QString()), "wv: Load error page ( \"fr\" )"_s,
                              "\"/usr/local/share/fr\""_s, "Can't open url ( true ,  \"\" )"_s}));
    }

    void keysAreSwallowed()
    {
        server->serve("/page", "<body onkeydown='document.title += \"k\"'><input id='i'></body>");
        PanelView panel;
        panel.window.openUrlForce(page, true);
        QTRY_VERIFY(showsView(panel));
        for (const int key : {Qt::Key_A, Qt::Key_Escape, Qt::Key_Backspace, Qt::Key_F5, Qt::Key_Tab}) {
            QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, "a"_s);
            QApplication::sendEvent(&panel.window, &press);
            QVERIFY(press.isAccepted()); // a widget that has no use for a key passes it on
        }
        panel.waitForQuiet();
        QCOMPARE(panel.frame()->title(), QString());
        QVERIFY(panel.window.isVisible()); // a dialog would close on Escape
        QCOMPARE(server->count("/page"), 1);
    }

private:
    std::unique_ptr<WebServer> server;
    QString page;
    QString other;
};

QTEST_MAIN(tst_MainWindow)
#include "tst_mainwindow.moc"
