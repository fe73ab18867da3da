// SPDX-License-Identifier: MIT
#include <memory>

#include <QDialog>
#include <QListWidget>
#include <QNetworkReply>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QWebSettings>

#include "dialogdriver.h"
#include "networkaccessmanager.h"
#include "panelview.h"
#include "rows.h"
#include "usbstick.h"
#include "webserver.h"

using namespace Varnel;

namespace {

const QString unsupported = "WebPage::UnsupportedContent"_s;
const QString httpError = "HTTP ERROR"_s;

} // namespace

/// The page: how it names itself, what it does with each reply and with what the engine cannot show.
class tst_WebPage : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server = std::make_unique<WebServer>();
        server->serve("/page", "<p>page</p>");
        server->serve("/style.css", "body {color: red}", "text/css");
        server->serve("/script.js", "var ran = true;", "text/javascript");
        server->serve("/frame", "<p>frame</p>");
        server->serve("/picture.gif",
                      QByteArray::fromBase64("R0lGODlhAQABAIAAAAAAAP///yH5BAEAAAAALAAAAAABAAEAAAIBRAA7"),
                      "image/gif");
        server->serve("/parts",
                      "<html><head><link rel='stylesheet' href='/style.css'></head><body><p>parts</p>"
                      "<script src='/script.js'></script><img src='/picture.gif'>"
                      "<iframe src='/frame'></iframe></body></html>");
    }

    void scrollBarsAreOff()
    {
        const PanelView panel;
        QCOMPARE(panel.frame()->scrollBarPolicy(Qt::Vertical), Qt::ScrollBarAlwaysOff);
        QCOMPARE(panel.frame()->scrollBarPolicy(Qt::Horizontal), Qt::ScrollBarAlwaysOff);
    }

    void everyPartIsRequestedByNameAndReported()
    {
        const ScopedSetting<QString> login("WebSite", "Login", "user"_s);
        const ScopedSetting<QString> password("WebSite", "Password", "pass"_s);
        PanelView panel;
        QSignalSpy reported(panel.page(), &WebPage::responseError);
        panel.load(server->url("/parts"));
        QTRY_COMPARE(reported.size(), 5);
        for (const QList<QVariant>& arguments : reported) {
            QVERIFY(arguments.at(0).toBool());
        }
        QCOMPARE(panel.count(httpError), 0);
        QVERIFY(!panel.timer()->isActive());
        QCOMPARE(server->requests().size(), 5); // and none for an icon
        QCOMPARE(QWebSettings::iconDatabasePath(), QString());
        for (const WebServer::Request& request : server->requests()) {
            QCOMPARE(request.headers.value("user-agent"), QByteArray("Varnel VarnelBrowser/2.0 WebKit"));
            QCOMPARE(request.headers.value("authorization"), QByteArray("Basic dXNlcjpwYXNz"));
        }

        reported.clear();
        panel.load(server->url("/missing"));
        QTRY_COMPARE(reported.size(), 1);
        QVERIFY(!reported.at(0).at(0).toBool());
        QCOMPARE(panel.count(httpError), 1);
    }

    void mainFrameAloneNamesTheAddress()
    {
        PanelView panel;
        QSignalSpy loading(panel.page(), &WebPage::loadingUrl);
        panel.load(server->url("/parts"));
        QTRY_COMPARE(server->count("/frame"), 1);
        panel.evaluate("location.href = '/page'");
        QTRY_COMPARE(panel.text(), "page"_s);
        panel.clear();
        panel.page()->retryLoad(); // loads nothing itself
        QCOMPARE(panel.log(),
                 QStringList{"WebPage::retryLoad  \"%1\""_s.arg(server->url("/page").toString())});
        const QVariantList parts{server->url("/parts")};
        const QVariantList page{server->url("/page")};
        QCOMPARE(static_cast<const QList<QVariantList>&>(loading), (QList<QVariantList>{parts, page, page}));
        QCOMPARE(server->count("/page"), 1);
    }

    void finishedRepliesAreDeleted()
    {
        PanelView panel;
        NetworkAccessManager* const manager = panel.window.getNetworkAccessManager();
        const QPointer<QNetworkReply> good = manager->get(QNetworkRequest(server->url("/page")));
        const QPointer<QNetworkReply> bad = manager->get(QNetworkRequest(server->url("/missing")));
        QTRY_VERIFY(good.isNull());
        QTRY_VERIFY(bad.isNull());
    }

    void localStorageIsKeptWhereTheSettingsSay()
    {
        PanelView panel;
        QVERIFY(panel.page()->settings()->testAttribute(QWebSettings::LocalStorageEnabled));
        QVERIFY(QWebSettings::globalSettings()->localStoragePath().startsWith(
            QLatin1String("/tmp/varnel-browser-cache")));
        panel.load(server->url("/page"));
        panel.evaluate("localStorage.setItem('kept', 'value')");
        QCOMPARE(panel.evaluate("localStorage.getItem('kept')").toString(), "value"_s);
    }

    void storedPagesOfAnOlderVersionAreRemoved()
    {
        const QDir directory(Settings::getWebCachePath());
        QVERIFY(directory.mkpath("."_s));
        const QStringList stored{"ApplicationCache.db"_s, "ApplicationCache.db-wal"_s};
        for (const QString& name : stored + QStringList("other.db"_s)) {
            QFile file(directory.filePath(name));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write("page") == 4);
        }
        const PanelView panel;
        for (const QString& name : stored) {
            QVERIFY2(!directory.exists(name), qPrintable(name));
        }
        QVERIFY(directory.exists("other.db"_s));
    }

    void emptyCachePathSparesTheWorkingDirectory()
    {
        const ScopedSetting<QString> path("WebCache", "Path", QString());
        const QTemporaryDir directory;
        const QString file = directory.filePath("ApplicationCache.db"_s);
        QVERIFY(QFile(file).open(QIODevice::WriteOnly));
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(directory.path()));
        const PanelView panel;
        QVERIFY(QDir::setCurrent(before));
        QVERIFY(QFile::exists(file));
    }

    void unansweredPageFails_data()
    {
        // script: how the page asks for it
        const Rows<QString, bool> row("script", "fails");
        row("address of the main frame: fails", "location.href = '/slow'"_s, true);
        row("address of a frame within: waits", "document.body.innerHTML = '<iframe src=/slow>'"_s, false);
        row("form: waits",
            "document.body.innerHTML = '<form method=post action=/slow>';"
            "document.forms[0].submit()"_s,
            false);
    }

    void unansweredPageFails()
    {
        QFETCH(QString, script);
        QFETCH(bool, fails);
        const ScopedSetting<quint16> limit("Network", "PageTimeout", quint16(1));
        server->hold("/slow");
        PanelView panel;
        panel.load(server->url("/page"));
        panel.frame()->evaluateJavaScript(script);
        QTRY_COMPARE(server->count("/slow"), 1);
        QCOMPARE(QTest::qWaitFor([&panel] { return panel.showsErrorPage(); }, 1500), fails);
        QCOMPARE(panel.timer()->isActive(), fails);
    }

    void unsupportedContentGoesToTheDownload_data()
    {
        // script: how the page asks for it
        const Rows<QString> row("script");
        row("address of the main frame", "location.href = '/file.bin'"_s);
        row("address of a frame within", "document.getElementById('frame').src = '/file.bin'"_s);
    }

    void unsupportedContentGoesToTheDownload()
    {
        QFETCH(QString, script);
        server->serve("/file.bin", QByteArray(100000, 'x'), "application/octet-stream");
        server->serve("/page", "<html><body>the page<iframe id='frame'></iframe></body></html>");
        DialogDriver user;
        user.onShown("TimedPopup"_s, [](QDialog* popup) { popup->accept(); });
        PanelView panel;
        panel.load(server->url("/page"));
        panel.clear();
        panel.frame()->evaluateJavaScript(script);
        QTRY_COMPARE(panel.count(unsupported), 1);
        QTRY_COMPARE(user.seen(), QStringList{"TimedPopup"_s}); // there is no USB drive
        panel.waitForQuiet();
        QCOMPARE(panel.text(), "the page"_s); // it stays on the screen
        QCOMPARE(panel.count(httpError), 0);
        QVERIFY(!panel.timer()->isActive());
        QCOMPARE(panel.evaluate("1 + 1").toInt(), 2); // and it is still alive
        QCOMPARE(server->count("/file.bin"), 1);
    }

    void replyGoneBeforeItsDownload()
    {
        server->serve("/file.bin", "content", "application/octet-stream");
        PanelView panel;
        std::unique_ptr<QNetworkReply> reply(
            panel.window.getNetworkAccessManager()->get(QNetworkRequest(server->url("/file.bin"))));
        panel.clear();
        panel.page()->handleUnsupportedContent(reply.get());
        reply.reset();
        QCoreApplication::processEvents();
        QCOMPARE(panel.log(), QStringList{unsupported});
    }

    void failedUnsupportedContent_data()
    {
        const Rows<QString, QString> row("path", "text");
        row("of the page itself: a short page", "/gone"_s, "An error occurred while loading page."_s);
        row("of another address: nothing", "/elsewhere"_s, "page"_s);
    }

    void failedUnsupportedContent()
    {
        QFETCH(QString, path);
        QFETCH(QString, text);
        PanelView panel;
        server->serve("/gone", "<p>page</p>");
        panel.load(server->url("/gone"));
        QCOMPARE(panel.text(), "page"_s);
        server->refuse("/gone", "410 Gone");
        const QPointer<QNetworkReply> reply = failedReply(panel, path);
        QVERIFY(reply);
        panel.clear();
        panel.page()->handleUnsupportedContent(reply);
        QCOMPARE(panel.log(), QStringList{unsupported});
        panel.waitForQuiet();
        QCOMPARE(panel.text(), text);
        if (path == QLatin1String("/gone")) {
            QCOMPARE(panel.frame()->baseUrl(), server->url(path));
            QCOMPARE(panel.frame()->toHtml(), "<html><head></head><body>%1</body></html>"_s.arg(text));
        }
        QTRY_VERIFY(reply.isNull());
    }

    void failedDownloadLink()
    {
        // A file that is gone is a failure of the page, even if the download has saved its first bytes.
        WebServer::Answer gone;
        gone.status = "404 Not Found";
        gone.headers = "Content-Type: application/octet-stream\r\n";
        gone.body = "gone";
        server->serve("/file.bin", gone);
        DialogDriver user;
        user.onShown("TimedPopup"_s, [](QDialog* popup) { popup->accept(); });
        PanelView panel;
        panel.load(server->url("/page"));
        panel.evaluate("location.href = '/file.bin'");
        QTRY_VERIFY(panel.timer()->isActive());
        panel.waitForQuiet();
        QVERIFY(panel.count(httpError) >= 1);
        QVERIFY2(panel.showsErrorPage(), qPrintable(panel.text()));
    }

    void fileInput_data()
    {
        const Rows<QByteArray> row("attribute");
        row("one file", {});
        row("several files: the same chooser, not the toolkit's", "multiple");
    }

    void fileInput()
    {
        QFETCH(QByteArray, attribute);
        UsbStick stick;
        stick.put("firmware.bin"_s, "octets");
        server->serve(
            "/upload.html",
            "<input type=file id=f style='position:absolute;left:0;top:0;width:200px;height:100px' " +
                attribute + ">");
        DialogDriver user;
        user.onWaiting("FileDialog"_s, [](QDialog* dialog) {
            dialog->findChild<QListWidget*>()->setCurrentRow(0);
            dialog->accept();
        });
        user.onWaiting("QFileDialog"_s, [](QDialog* dialog) { dialog->reject(); });
        PanelView panel;
        panel.load(server->url("/upload.html"));
        QTest::mouseClick(panel.view, Qt::LeftButton, {}, QPoint(20, 20));
        QTRY_COMPARE(user.seen(), QStringList("FileDialog"_s));
        QTRY_COMPARE(panel.evaluate("[].map.call(f.files, function(x) { return x.name; }).join()").toString(),
                     "firmware.bin"_s);
    }

private:
    QNetworkReply* failedReply(PanelView& panel, const QString& path)
    {
        // From a manager of its own, so that no other object handles and deletes it.
        auto* const manager = new QNetworkAccessManager(&panel.window);
        QNetworkReply* const reply = manager->get(QNetworkRequest(server->url(path)));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        return finished.wait() && reply->error() != QNetworkReply::NoError ? reply : nullptr;
    }

    std::unique_ptr<WebServer> server;
};

QTEST_MAIN(tst_WebPage)
#include "tst_webpage.moc"
