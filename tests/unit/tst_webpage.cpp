// SPDX-License-Identifier: MIT
#include <memory>

#include <QDialog>
#include <QListWidget>
#include <QNetworkReply>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWebSettings>

#include "dialogdriver.h"
#include "networkaccessmanager.h"
#include "panelview.h"
#include "usbstick.h"
#include "webserver.h"

using namespace Varnel;

/// The page: how it names itself, what it does with each reply and with what the engine cannot show.
class tst_WebPage : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void scrollBarsAreOff();
    void everyRequestCarriesNameAndCredentials();
    void mainFrameAloneNamesTheAddress();
    void everyReplyIsReported();
    void finishedRepliesAreDeleted();
    void retryLoad();
    void noFaviconIsAskedFor();
    void localStorageIsKeptWhereTheSettingsSay();
    void storedPagesOfAnOlderVersionAreRemoved();
    void emptyCachePathSparesTheWorkingDirectory();
    void unansweredPageFails_data();
    void unansweredPageFails();
    void unsupportedContentGoesToTheDownload_data();
    void unsupportedContentGoesToTheDownload();
    void failedUnsupportedContent_data();
    void failedUnsupportedContent();
    void failedDownloadLink();
    void fileInput_data();
    void fileInput();

private:
    QNetworkReply* failedReply(PanelView& panel, const QString& path);

    std::unique_ptr<WebServer> server;
};

namespace {

const QString pagePath = QStringLiteral("/page.html");
const QString unsupported = QStringLiteral("WebPage::UnsupportedContent");
const QString httpError = QStringLiteral("HTTP ERROR");

} // namespace

void tst_WebPage::init()
{
    server = std::make_unique<WebServer>();
    server->serve(pagePath, QByteArray("<p>page</p>"));
    server->serve(QStringLiteral("/style.css"), QByteArray("body {color: red}"), "text/css");
    server->serve(QStringLiteral("/script.js"), QByteArray("var ran = true;"), "text/javascript");
    server->serve(QStringLiteral("/frame.html"), QByteArray("<p>frame</p>"));
    server->serve(QStringLiteral("/picture.gif"),
                  QByteArray::fromBase64("R0lGODlhAQABAIAAAAAAAP///yH5BAEAAAAALAAAAAABAAEAAAIBRAA7"),
                  "image/gif");
    server->serve(QStringLiteral("/parts.html"),
                  QByteArray("<html><head><link rel='stylesheet' href='/style.css'></head><body><p>parts</p>"
                             "<script src='/script.js'></script><img src='/picture.gif'>"
                             "<iframe src='/frame.html'></iframe></body></html>"));
}

void tst_WebPage::cleanup()
{
    server.reset();
}

void tst_WebPage::scrollBarsAreOff()
{
    PanelView panel;
    QCOMPARE(panel.frame()->scrollBarPolicy(Qt::Vertical), Qt::ScrollBarAlwaysOff);
    QCOMPARE(panel.frame()->scrollBarPolicy(Qt::Horizontal), Qt::ScrollBarAlwaysOff);
}

void tst_WebPage::everyRequestCarriesNameAndCredentials()
{
    const ScopedSetting<QString> login("WebSite", "Login", QStringLiteral("user"));
    const ScopedSetting<QString> password("WebSite", "Password", QStringLiteral("pass"));
    PanelView panel;
    panel.load(server->url(QStringLiteral("/parts.html")));
    QTRY_COMPARE(server->requests().size(), 5);
    for (const WebServer::Request& request : server->requests()) {
        QCOMPARE(request.headers.value("user-agent"), QByteArray("Varnel VarnelBrowser/2.0 WebKit"));
        QCOMPARE(request.headers.value("authorization"), QByteArray("Basic dXNlcjpwYXNz"));
    }
}

void tst_WebPage::mainFrameAloneNamesTheAddress()
{
    PanelView panel;
    QSignalSpy loading(panel.page(), &WebPage::loadingUrl);
    panel.load(server->url(QStringLiteral("/parts.html")));
    QTRY_COMPARE(server->count(QStringLiteral("/frame.html")), 1);
    QCOMPARE(loading.size(), 1);
    QCOMPARE(loading.at(0).at(0).toUrl(), server->url(QStringLiteral("/parts.html")));
    panel.frame()->evaluateJavaScript(QStringLiteral("location.href = '/page.html'"));
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(loading.size(), 2);
    QCOMPARE(loading.at(1).at(0).toUrl(), server->url(pagePath));
}

void tst_WebPage::everyReplyIsReported()
{
    PanelView panel;
    QSignalSpy reported(panel.page(), &WebPage::responseError);
    panel.load(server->url(QStringLiteral("/parts.html")));
    QTRY_COMPARE(reported.size(), 5);
    for (const QList<QVariant>& arguments : reported) {
        QVERIFY(arguments.at(0).toBool());
    }
    QCOMPARE(panel.count(httpError), 0);

    reported.clear();
    panel.load(server->url(QStringLiteral("/missing")));
    QTRY_COMPARE(reported.size(), 1);
    QVERIFY(!reported.at(0).at(0).toBool());
    QCOMPARE(panel.count(httpError), 1);
}

void tst_WebPage::finishedRepliesAreDeleted()
{
    PanelView panel;
    NetworkAccessManager* const manager = panel.window.getNetworkAccessManager();
    const QPointer<QNetworkReply> good = manager->get(QNetworkRequest(server->url(pagePath)));
    const QPointer<QNetworkReply> bad =
        manager->get(QNetworkRequest(server->url(QStringLiteral("/missing"))));
    QTRY_VERIFY(good.isNull());
    QTRY_VERIFY(bad.isNull());
}

void tst_WebPage::retryLoad()
{
    PanelView panel;
    panel.load(server->url(pagePath));
    QSignalSpy loading(panel.page(), &WebPage::loadingUrl);
    panel.clear();
    panel.page()->retryLoad();
    QCOMPARE(panel.log(),
             QStringList{QStringLiteral("WebPage::retryLoad  \"%1\"").arg(server->url(pagePath).toString())});
    QCOMPARE(loading.size(), 1);
    QCOMPARE(loading.at(0).at(0).toUrl(), server->url(pagePath));
    QCOMPARE(server->count(pagePath), 1); // it loads nothing itself
}

void tst_WebPage::noFaviconIsAskedFor()
{
    PanelView panel;
    panel.load(server->url(pagePath));
    panel.load(server->url(QStringLiteral("/parts.html")));
    QTRY_COMPARE(server->requests().size(), 6);
    panel.waitForQuiet();
    QCOMPARE(server->count(QStringLiteral("/favicon.ico")), 0);
    QVERIFY(!panel.timer()->isActive());
    QCOMPARE(QWebSettings::iconDatabasePath(), QString());
}

void tst_WebPage::localStorageIsKeptWhereTheSettingsSay()
{
    PanelView panel;
    QVERIFY(panel.page()->settings()->testAttribute(QWebSettings::LocalStorageEnabled));
    QVERIFY(QWebSettings::globalSettings()->localStoragePath().startsWith(
        QLatin1String("/tmp/varnel-browser-cache")));
    panel.load(server->url(pagePath));
    panel.frame()->evaluateJavaScript(QStringLiteral("localStorage.setItem('kept', 'value')"));
    QCOMPARE(panel.frame()->evaluateJavaScript(QStringLiteral("localStorage.getItem('kept')")).toString(),
             QStringLiteral("value"));
}

void tst_WebPage::storedPagesOfAnOlderVersionAreRemoved()
{
    const QDir directory(Settings::getWebCachePath());
    QVERIFY(directory.mkpath(QStringLiteral(".")));
    const QStringList stored{QStringLiteral("ApplicationCache.db"),
                             QStringLiteral("ApplicationCache.db-wal")};
    for (const QString& name : stored + QStringList(QStringLiteral("other.db"))) {
        QFile file(directory.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("page") == 4);
    }
    const PanelView panel;
    for (const QString& name : stored) {
        QVERIFY2(!directory.exists(name), qPrintable(name));
    }
    QVERIFY(directory.exists(QStringLiteral("other.db")));
}

void tst_WebPage::emptyCachePathSparesTheWorkingDirectory()
{
    const ScopedSetting<QString> path("WebCache", "Path", QString());
    const QTemporaryDir directory;
    const QString file = directory.filePath(QStringLiteral("ApplicationCache.db"));
    QVERIFY(QFile(file).open(QIODevice::WriteOnly));
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    const PanelView panel;
    QVERIFY(QDir::setCurrent(before));
    QVERIFY(QFile::exists(file));
}

void tst_WebPage::unansweredPageFails_data()
{
    QTest::addColumn<QString>("script"); ///< how the page asks for it
    QTest::addColumn<bool>("fails");
    QTest::newRow("address of the main frame: fails") << QStringLiteral("location.href = '/slow'") << true;
    QTest::newRow("address of a frame within: waits")
        << QStringLiteral("document.body.innerHTML = '<iframe src=/slow>'") << false;
    QTest::newRow("picture: waits") << QStringLiteral("new Image().src = '/slow'") << false;
    const QString form = QStringLiteral("document.body.innerHTML = '<form method=%1 action=/slow>';"
                                        "document.forms[0].submit()");
    QTest::newRow("form that asks: waits") << form.arg(QStringLiteral("get")) << false;
    QTest::newRow("form that sends: waits") << form.arg(QStringLiteral("post")) << false;
}

void tst_WebPage::unansweredPageFails()
{
    QFETCH(QString, script);
    QFETCH(bool, fails);
    const ScopedSetting<quint16> limit("Network", "PageTimeout", quint16(1));
    WebServer::Answer silent;
    silent.silent = true;
    server->serve(QStringLiteral("/slow"), silent);
    PanelView panel;
    panel.load(server->url(pagePath));
    panel.frame()->evaluateJavaScript(script);
    const auto asked = [this] { return server->requests().constLast().path.startsWith("/slow"); };
    QTRY_VERIFY(asked());
    QCOMPARE(QTest::qWaitFor([&panel] { return panel.showsErrorPage(); }, 1500), fails);
    QCOMPARE(panel.timer()->isActive(), fails);
}

void tst_WebPage::unsupportedContentGoesToTheDownload_data()
{
    QTest::addColumn<QByteArray>("script"); ///< how the page asks for it
    QTest::newRow("link in the main frame") << QByteArray("document.getElementById('link').click()");
    QTest::newRow("address of the main frame") << QByteArray("location.href = '/file.bin'");
    QTest::newRow("address of a frame within")
        << QByteArray("document.getElementById('frame').src = '/file.bin'");
}

void tst_WebPage::unsupportedContentGoesToTheDownload()
{
    QFETCH(QByteArray, script);
    server->serve(QStringLiteral("/file.bin"), QByteArray(100000, 'x'), "application/octet-stream");
    server->serve(pagePath,
                  QByteArray("<html><body>the page<a id='link' href='/file.bin'></a><iframe id='frame'>"
                             "</iframe></body></html>"));
    DialogDriver user;
    user.onShown(QStringLiteral("TimedPopup"), [](QDialog* popup) { popup->accept(); });
    PanelView panel;
    panel.load(server->url(pagePath));
    panel.clear();
    panel.frame()->evaluateJavaScript(QString::fromLatin1(script));
    QTRY_COMPARE(panel.count(unsupported), 1);
    QTRY_COMPARE(user.seen(), QStringList{QStringLiteral("TimedPopup")}); // there is no USB drive
    panel.waitForQuiet();
    QCOMPARE(panel.text(), QStringLiteral("the page")); // it stays on the screen
    QCOMPARE(panel.count(httpError), 0);
    QVERIFY(!panel.timer()->isActive());
    // And it is still alive.
    QCOMPARE(panel.frame()->evaluateJavaScript(QStringLiteral("1 + 1")).toInt(), 2);
    QCOMPARE(server->count(QStringLiteral("/file.bin")), 1);
}

QNetworkReply* tst_WebPage::failedReply(PanelView& panel, const QString& path)
{
    // From a manager of its own, so that no other object handles and deletes it.
    auto* const manager = new QNetworkAccessManager(&panel.window);
    QNetworkReply* const reply = manager->get(QNetworkRequest(server->url(path)));
    QSignalSpy finished(reply, &QNetworkReply::finished);
    return finished.wait() && reply->error() != QNetworkReply::NoError ? reply : nullptr;
}

void tst_WebPage::failedUnsupportedContent_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("text");
    QTest::newRow("of the page itself: a short page")
        << QStringLiteral("/gone") << QStringLiteral("An error occurred while loading page.");
    QTest::newRow("of another address: nothing") << QStringLiteral("/elsewhere") << QStringLiteral("page");
}

void tst_WebPage::failedUnsupportedContent()
{
    QFETCH(QString, path);
    QFETCH(QString, text);
    PanelView panel;
    server->serve(QStringLiteral("/gone"), QByteArray("<p>page</p>"));
    panel.load(server->url(QStringLiteral("/gone")));
    QCOMPARE(panel.text(), QStringLiteral("page"));
    server->refuse(QStringLiteral("/gone"), "410 Gone");
    const QPointer<QNetworkReply> reply = failedReply(panel, path);
    QVERIFY(reply);
    panel.clear();
    panel.page()->handleUnsupportedContent(reply);
    QCOMPARE(panel.log(), QStringList{unsupported});
    panel.waitForQuiet();
    QCOMPARE(panel.text(), text);
    if (path == QLatin1String("/gone")) {
        QCOMPARE(panel.frame()->baseUrl(), server->url(path));
        QCOMPARE(
            panel.frame()->toHtml(),
            QStringLiteral("<html><head></head><body>An error occurred while loading page.</body></html>"));
    }
    QTRY_VERIFY(reply.isNull());
}

void tst_WebPage::failedDownloadLink()
{
    // A file that is gone is a failure of the page, even if the download has saved its first bytes.
    WebServer::Answer gone;
    gone.status = "404 Not Found";
    gone.headers = "Content-Type: application/octet-stream\r\n";
    gone.body = "gone";
    server->serve(QStringLiteral("/file.bin"), gone);
    DialogDriver user;
    user.onShown(QStringLiteral("TimedPopup"), [](QDialog* popup) { popup->accept(); });
    PanelView panel;
    panel.load(server->url(pagePath));
    panel.frame()->evaluateJavaScript(QStringLiteral("location.href = '/file.bin'"));
    QTRY_VERIFY(panel.timer()->isActive());
    panel.waitForQuiet();
    QVERIFY(panel.count(httpError) >= 1);
    QVERIFY2(panel.showsErrorPage(), qPrintable(panel.text()));
}

void tst_WebPage::fileInput_data()
{
    QTest::addColumn<QByteArray>("attribute");

    QTest::newRow("one file") << QByteArray();
    QTest::newRow("several files: the same chooser, not the toolkit's") << QByteArray("multiple");
}

void tst_WebPage::fileInput()
{
    QFETCH(QByteArray, attribute);
    UsbStick stick;
    stick.put(QStringLiteral("firmware.bin"), "octets");
    server->serve(QStringLiteral("/upload.html"),
                  "<input type=file id=f style='position:absolute;left:0;top:0;width:200px;height:100px' " +
                      attribute + ">");
    DialogDriver user;
    user.onWaiting(QStringLiteral("FileDialog"), [](QDialog* dialog) {
        dialog->findChild<QListWidget*>()->setCurrentRow(0);
        dialog->accept();
    });
    user.onWaiting(QStringLiteral("QFileDialog"), [](QDialog* dialog) { dialog->reject(); });
    PanelView panel;
    panel.load(server->url(QStringLiteral("/upload.html")));
    QTest::mouseClick(panel.view, Qt::LeftButton, {}, QPoint(20, 20));
    QTRY_COMPARE(user.seen(), QStringList(QStringLiteral("FileDialog")));
    const QString chosen = QStringLiteral("[].map.call(f.files, function(x) { return x.name; }).join()");
    QTRY_COMPARE(panel.frame()->evaluateJavaScript(chosen).toString(), QStringLiteral("firmware.bin"));
}

QTEST_MAIN(tst_WebPage)
#include "tst_webpage.moc"
