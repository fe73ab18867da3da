// SPDX-License-Identifier: MIT
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QWebPage>

#include "panelview.h"
#include "rows.h"

using namespace Varnel;

namespace {

/// The text of a page without its picture.
QString missing(const char* page)
{
    return "<div style='position:absolute;top:2em;left:2em;'><h1>Can't find the %1 page</h1>"
           "<p>Something is wrong... really :(</p></div>"_s.arg(QLatin1String(page));
}

} // namespace

/// The panel's own pages: their exact text, and the picture that is chosen for them.
class tst_WebViewPages : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        images = std::make_unique<QTemporaryDir>();
        directory = std::make_unique<ScopedSetting<QString>>("UI", "ErrorImagePath", images->path());
        panel = std::make_unique<PanelView>();
    }

    void cleanup()
    {
        panel.reset();
        directory.reset();
        Settings::setInfoDevice("DeviceUndef"_s);
        Settings::setInfoRelease("ReleaseUndef"_s);
    }

    void frameOfBothPages()
    {
        QCOMPARE(panel->view->HtmlContent("[BACK]"_s, "[LEFT]"_s, "[%1]"_s),
                 "<html><head><style>html, body, div {margin:0; padding:0;}</style></head><body>"
                 "<div style='width:800px;height:480px'>[BACK]"
                 "<div style='position:absolute;bottom:1em;left:1em;width:266px;'>[LEFT]</div>"
                 "<div style='position:absolute;bottom:1em;right:2em;width:266px;text-align:right;'>[%1]"
                 "</div><div/></body></html>"_s);
    }

    void pages_data()
    {
        // there: what the directory has; "name/" where no picture is in its place
        // picture: the directory of the picture; empty for the text
        const Rows<QString, QString, QString> row("there", "language", "picture");
        row("default language: its picture", "de|default|fr"_s, "default"_s, "default"_s);
        row("fr with a picture of its own: that", "de|default|fr"_s, "fr"_s, "fr"_s);
        row("fr without: the default picture", "de|default"_s, "fr"_s, "default"_s);
        row("fr, the default is missing: its own", "de|fr"_s, "fr"_s, "fr"_s);
        row("default, which is missing: the text", "de|fr"_s, "default"_s, ""_s);
        row("the picture is a directory: the default picture", "default|fr/"_s, "fr"_s, "default"_s);
        row("both pictures are directories: the text", "default/|fr/"_s, "fr"_s, ""_s);
        row("language with a blank: as it is", "f r"_s, "f r"_s, "f r"_s);
        row("language like a place to fill: as it is", "%1"_s, "%1"_s, "%1"_s);
    }

    void pages()
    {
        QFETCH(QString, there);
        QFETCH(QString, language);
        QFETCH(QString, picture);
        for (const QString& name : there.split(QLatin1Char('|'))) {
            for (const QString& file :
                 {images->filePath(name + "/error.png"_s), images->filePath(name + "/front.png"_s)}) {
                QVERIFY(QDir().mkpath(name.endsWith(QLatin1Char('/')) ? file : QFileInfo(file).path()));
                QVERIFY(name.endsWith(QLatin1Char('/')) || QFile(file).open(QIODevice::WriteOnly));
            }
        }
        panel->view->setLanguage(language);
        const QString head = "<div style='position:absolute;background-image:url(\"file://localhost"_s +
                             images->filePath(picture);
        const QString logged = QLatin1Char('"') + images->filePath(language) + QLatin1Char('"');
        panel->clear();

        panel->view->displayError("de"_s); // the argument is ignored
        QCOMPARE(panel->log(), QStringList({"wv: Load error page ( \""_s + language + "\" )"_s, logged}));
        // The quote that is missing in the error page, and there in the info page.
        expectPage(picture.isEmpty() ? missing("error")
                                     : head + "/error.png\");width:800px;height:480px;></div>"_s);
        panel->clear();

        panel->view->displayInfoFront("de"_s);
        QCOMPARE(panel->log(), QStringList({"ws: Load info page ( \""_s + language + "\" )"_s, logged}));
        expectPage(picture.isEmpty() ? missing("info")
                                     : head + "/front.png\");width:800px;height:480px;'></div>"_s);
        QVERIFY(panel->frame()->baseUrl().isEmpty());
    }

    void emptyDirectorySetting()
    {
        const ScopedSetting<QString> none("UI", "ErrorImagePath", QString());
        panel->view->displayError({});
        panel->view->displayInfoFront({});
        QCOMPARE(panel->log(), QStringList({"wv: Load error page ( \"default\" )"_s, "\"/default\""_s,
                                            "ws: Load info page ( \"default\" )"_s, "\"/default\""_s}));
        expectPage(missing("info"));
    }

    void deviceAndReleaseAreReadAgain()
    {
        panel->view->displayError({});
        expectPage(missing("error"), "DeviceUndef vReleaseUndef"_s);
        Settings::setInfoDevice("Panel 7"_s);
        Settings::setInfoRelease("2.0"_s);
        panel->view->displayError({});
        expectPage(missing("error"), "Panel 7 v2.0"_s);
        panel->view->displayInfoFront({});
        expectPage(missing("info"), "Panel 7 v2.0"_s);
    }

private:
    void expectPage(const QString& background, const QString& device = "DeviceUndef vReleaseUndef"_s) const
    {
        panel->waitForQuiet();
        QWebPage parsed;
        parsed.mainFrame()->setHtml(panel->view->HtmlContent(background, {}, device), QUrl());
        QCOMPARE(panel->frame()->toHtml(), parsed.mainFrame()->toHtml());
    }

    std::unique_ptr<QTemporaryDir> images;
    std::unique_ptr<ScopedSetting<QString>> directory;
    std::unique_ptr<PanelView> panel;
};

QTEST_MAIN(tst_WebViewPages)
#include "tst_webview_pages.moc"
