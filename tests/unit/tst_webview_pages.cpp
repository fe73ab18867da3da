// SPDX-License-Identifier: MIT
#include <QDir>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>
#include <QWebPage>

#include "panelview.h"
#include "webserver.h"

using namespace Varnel;

/// The panel's own pages: their exact text, and the picture that is chosen for them.
class tst_WebViewPages : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void frameOfBothPages();
    void pages_data();
    void pages();
    void pictureIsOnTheScreen_data();
    void pictureIsOnTheScreen();
    void argumentIsIgnored_data();
    void argumentIsIgnored();
    void emptyDirectorySetting();
    void deviceAndReleaseAreReadAnew();
    void failedPageIsReplaced();

private:
    void putPicture(const QString& path, QRgb color = qRgb(0, 0, 255)) const;

    std::unique_ptr<QTemporaryDir> images;
    std::unique_ptr<ScopedSetting<QString>> directory;
};

namespace {

enum class Page
{
    Error,
    Info
};

void show(PanelView& panel, Page page, const QString& name = QString())
{
    if (page == Page::Error) {
        panel.view->displayError(name);
    } else {
        panel.view->displayInfoFront(name);
    }
    panel.waitForQuiet();
}

/// The whole page, put down a second time.
QString wholePage(const QString& background,
                  const QString& device = QStringLiteral("DeviceUndef vReleaseUndef"))
{
    return QStringLiteral("<html><head><style>html, body, div {margin:0; padding:0;}</style></head><body>"
                          "<div style='width:800px;height:480px'>") +
           background +
           QStringLiteral(
               "<div style='position:absolute;bottom:1em;left:1em;width:266px;'></div>"
               "<div style='position:absolute;bottom:1em;right:2em;width:266px;text-align:right;'>") +
           device + QStringLiteral("</div><div/></body></html>");
}

/// The engine's view of `html`.
QString asParsed(const QString& html)
{
    QWebPage page;
    page.mainFrame()->setHtml(html, QUrl());
    return page.mainFrame()->toHtml();
}

const QString noErrorPicture =
    QStringLiteral("<div style='position:absolute;top:2em;left:2em;'><h1>Can't find the error page</h1>"
                   "<p>Something is wrong... really :(</p></div>");
const QString noInfoPicture =
    QStringLiteral("<div style='position:absolute;top:2em;left:2em;'><h1>Can't find the info page</h1>"
                   "<p>Something is wrong... really :(</p></div>");

} // namespace

void tst_WebViewPages::init()
{
    images = std::make_unique<QTemporaryDir>();
    QVERIFY(images->isValid());
    directory = std::make_unique<ScopedSetting<QString>>("UI", "ErrorImagePath", images->path());
}

void tst_WebViewPages::cleanup()
{
    directory.reset();
    images.reset();
    Settings::setInfoDevice(QStringLiteral("DeviceUndef"));
    Settings::setInfoRelease(QStringLiteral("ReleaseUndef"));
}

void tst_WebViewPages::putPicture(const QString& path, QRgb color) const
{
    const QFileInfo file(images->filePath(path));
    QVERIFY(QDir().mkpath(file.path()));
    QImage picture(800, 480, QImage::Format_RGB32);
    picture.fill(color);
    QVERIFY(picture.save(file.filePath()));
}

void tst_WebViewPages::frameOfBothPages()
{
    PanelView panel;
    QCOMPARE(
        panel.view->HtmlContent(QStringLiteral("[BACK]"), QStringLiteral("[LEFT]"), QStringLiteral("[%1]")),
        QStringLiteral(
            "<html><head><style>html, body, div {margin:0; padding:0;}</style></head><body>"
            "<div style='width:800px;height:480px'>[BACK]"
            "<div style='position:absolute;bottom:1em;left:1em;width:266px;'>[LEFT]</div>"
            "<div style='position:absolute;bottom:1em;right:2em;width:266px;text-align:right;'>[%1]"
            "</div><div/></body></html>"));
    QCOMPARE(panel.view->HtmlContent(QString(), QString(), QString()), wholePage(QString(), QString()));
}

void tst_WebViewPages::pages_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("picture"); ///< the directory of the picture; empty for the text
    const auto row = [](const char* name, const QStringList& files, const char* language,
                        const char* picture) {
        QTest::newRow(name) << files << QString::fromLatin1(language) << QString::fromLatin1(picture);
    };
    const QStringList both{QStringLiteral("default"), QStringLiteral("fr")};
    row("default language: its picture", both, "default", "default");
    row("fr with a picture of its own: that", both, "fr", "fr");
    row("fr without: the default picture", {QStringLiteral("default")}, "fr", "default");
    row("fr, the default is missing: its own", {QStringLiteral("fr")}, "fr", "fr");
    row("default, which is missing: the text", {QStringLiteral("fr")}, "default", "");
    row("no picture at all: the text", {}, "fr", "");
    row("the picture is a directory: the default picture",
        {QStringLiteral("default"), QStringLiteral("fr is a directory")}, "fr", "default");
    row("both pictures are directories: the text",
        {QStringLiteral("default is a directory"), QStringLiteral("fr is a directory")}, "fr", "");
    row("language with a blank: as it is", {QStringLiteral("f r")}, "f r", "f r");
    row("language like a place to fill: as it is", {QStringLiteral("%1")}, "%1", "%1");
}

void tst_WebViewPages::pages()
{
    QFETCH(QStringList, files);
    QFETCH(QString, language);
    QFETCH(QString, picture);
    for (const QString& file : files) {
        const QString name = file.section(QStringLiteral(" is a directory"), 0, 0);
        if (name != file) {
            QVERIFY(QDir().mkpath(images->filePath(name + QStringLiteral("/error.png"))));
            QVERIFY(QDir().mkpath(images->filePath(name + QStringLiteral("/front.png"))));
        } else {
            putPicture(name + QStringLiteral("/error.png"));
            putPicture(name + QStringLiteral("/front.png"));
        }
    }
    PanelView panel;
    panel.view->setLanguage(language);
    const QString head =
        QStringLiteral("<div style='position:absolute;background-image:url(\"file://localhost") +
        images->path() + QLatin1Char('/') + picture;
    panel.clear();

    // The quote that is missing in the error page, and there in the info page.
    show(panel, Page::Error);
    QCOMPARE(
        panel.frame()->toHtml(),
        asParsed(wholePage(picture.isEmpty()
                               ? noErrorPicture
                               : head + QStringLiteral("/error.png\");width:800px;height:480px;></div>"))));
    QCOMPARE(
        panel.log(),
        (QStringList{QStringLiteral("wv: Load error page ( \"") + language + QStringLiteral("\" )"),
                     QLatin1Char('"') + images->path() + QLatin1Char('/') + language + QLatin1Char('"')}));
    panel.clear();

    show(panel, Page::Info);
    QCOMPARE(
        panel.frame()->toHtml(),
        asParsed(wholePage(picture.isEmpty()
                               ? noInfoPicture
                               : head + QStringLiteral("/front.png\");width:800px;height:480px;'></div>"))));
    QCOMPARE(
        panel.log(),
        (QStringList{QStringLiteral("ws: Load info page ( \"") + language + QStringLiteral("\" )"),
                     QLatin1Char('"') + images->path() + QLatin1Char('/') + language + QLatin1Char('"')}));
    QVERIFY(panel.frame()->baseUrl().isEmpty());
}

void tst_WebViewPages::pictureIsOnTheScreen_data()
{
    QTest::addColumn<bool>("error");
    QTest::newRow("error page, in spite of its missing quote") << true;
    QTest::newRow("info page") << false;
}

void tst_WebViewPages::pictureIsOnTheScreen()
{
    QFETCH(bool, error);
    putPicture(QStringLiteral("default/error.png"), qRgb(255, 0, 0));
    putPicture(QStringLiteral("default/front.png"), qRgb(0, 255, 0));
    PanelView panel;
    panel.window.resize(800, 480);
    panel.window.findChild<QLabel*>(QStringLiteral("lblProgress"))->hide();
    panel.view->show();
    QTRY_COMPARE(panel.view->size(), QSize(800, 480));
    show(panel, error ? Page::Error : Page::Info);
    const QRgb wanted = error ? qRgb(255, 0, 0) : qRgb(0, 255, 0);
    const auto pixel = [&panel](int x, int y) {
        QImage screen(800, 480, QImage::Format_RGB32);
        screen.fill(Qt::gray);
        QPainter painter(&screen);
        panel.frame()->render(&painter);
        painter.end();
        return screen.pixel(x, y);
    };
    QTRY_COMPARE(pixel(0, 0), wanted);
    QCOMPARE(pixel(799, 0), wanted);
    QCOMPARE(pixel(400, 240), wanted);
    QCOMPARE(pixel(0, 479), wanted);
}

void tst_WebViewPages::argumentIsIgnored_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("default") << QStringLiteral("default");
    QTest::newRow("another language with a picture") << QStringLiteral("de");
    QTest::newRow("nonsense") << QStringLiteral("../../etc");
}

void tst_WebViewPages::argumentIsIgnored()
{
    QFETCH(QString, name);
    for (const char* const file : {"fr/error.png", "fr/front.png", "de/error.png", "de/front.png"}) {
        putPicture(QString::fromLatin1(file));
    }
    PanelView panel;
    panel.view->setLanguage(QStringLiteral("fr"));
    show(panel, Page::Error, name);
    QVERIFY(panel.frame()->toHtml().contains(images->path() + QStringLiteral("/fr/error.png")));
    show(panel, Page::Info, name);
    QVERIFY(panel.frame()->toHtml().contains(images->path() + QStringLiteral("/fr/front.png")));
}

void tst_WebViewPages::emptyDirectorySetting()
{
    const ScopedSetting<QString> none("UI", "ErrorImagePath", QString());
    PanelView panel;
    panel.view->setLanguage(QStringLiteral("fr"));
    panel.clear();
    show(panel, Page::Error);
    show(panel, Page::Info);
    QCOMPARE(panel.log(),
             (QStringList{QStringLiteral("wv: Load error page ( \"fr\" )"), QStringLiteral("\"/fr\""),
                          QStringLiteral("ws: Load info page ( \"fr\" )"), QStringLiteral("\"/fr\"")}));
    QCOMPARE(panel.frame()->toHtml(), asParsed(wholePage(noInfoPicture)));
}

void tst_WebViewPages::deviceAndReleaseAreReadAnew()
{
    PanelView panel;
    show(panel, Page::Error);
    QVERIFY(panel.text().endsWith(QLatin1String("DeviceUndef vReleaseUndef")));
    Settings::setInfoDevice(QStringLiteral("Panel 7"));
    Settings::setInfoRelease(QStringLiteral("2.0"));
    show(panel, Page::Error);
    QCOMPARE(panel.frame()->toHtml(), asParsed(wholePage(noErrorPicture, QStringLiteral("Panel 7 v2.0"))));
    show(panel, Page::Info);
    QCOMPARE(panel.frame()->toHtml(), asParsed(wholePage(noInfoPicture, QStringLiteral("Panel 7 v2.0"))));
}

void tst_WebViewPages::failedPageIsReplaced()
{
    WebServer server;
    const QUrl url = server.url(QStringLiteral("/"));
    server.close();
    putPicture(QStringLiteral("fr/error.png"));
    PanelView panel;
    panel.view->setLanguage(QStringLiteral("fr"));
    panel.load(url);
    QTRY_VERIFY(panel.frame()->toHtml().contains(images->path() + QStringLiteral("/fr/error.png")));
    QVERIFY(panel.log().contains(QStringLiteral("wv: Load error page ( \"fr\" )")));
}

QTEST_MAIN(tst_WebViewPages)
#include "tst_webview_pages.moc"
