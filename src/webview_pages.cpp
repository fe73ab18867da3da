// SPDX-License-Identifier: MIT
// WebView's own pages: a full-screen picture of the language, with the panel's name and release in the
// corner.
#include "webview.h"

#include <QFileInfo>
#include <QWebFrame>
#include <QtDebug>

#include "settings.h"

namespace Varnel {

namespace {

const QString pictureHead =
    QStringLiteral("<div style='position:absolute;background-image:url(\"file://localhost");

} // namespace

QString WebView::HtmlContent(QString background, QString left, QString right)
{
    return QLatin1String("<html><head><style>html, body, div {margin:0; padding:0;}</style></head><body>"
                         "<div style='width:800px;height:480px'>") +
           background + QLatin1String("<div style='position:absolute;bottom:1em;left:1em;width:266px;'>") +
           left +
           QLatin1String(
               "</div>"
               "<div style='position:absolute;bottom:1em;right:2em;width:266px;text-align:right;'>") +
           right + QLatin1String("</div><div/></body></html>");
}

void WebView::displayError(QString /*name*/)
{
    qDebug() << "wv: Load error page (" << language << ")";
    // The style's closing quote is missing on purpose. The engine shows the picture.
    showPicturePage(QStringLiteral("/error.png"), QStringLiteral("\");width:800px;height:480px;></div>"),
                    QStringLiteral("<div style='position:absolute;top:2em;left:2em;'>"
                                   "<h1>Can't find the error page</h1>"
                                   "<p>Something is wrong... really :(</p></div>"));
}

void WebView::displayInfoFront(QString /*name*/)
{
    endProbing();
    qDebug() << "ws: Load info page (" << language << ")";
    showPicturePage(QStringLiteral("/front.png"), QStringLiteral("\");width:800px;height:480px;'></div>"),
                    QStringLiteral("<div style='position:absolute;top:2em;left:2em;'>"
                                   "<h1>Can't find the info page</h1>"
                                   "<p>Something is wrong... really :(</p></div>"));
}

void WebView::showPicturePage(const QString& picture, const QString& tail, const QString& fallback)
{
    const QString lang = language;
    const QString directory = Settings::getUIErrorImagePath();
    const QString ofLanguage = directory + QLatin1Char('/') + lang + picture;
    const QString ofDefault = directory + QLatin1String("/default") + picture;

    QFileInfo file(ofLanguage);
    qDebug() << file.path();
    QString background = fallback;
    if (file.isFile()) {
        background = pictureHead + ofLanguage + tail;
    } else if (file.setFile(ofDefault); file.isFile()) {
        background = pictureHead + ofDefault + tail;
    }
    const QString device = Settings::getInfoDevice() + QLatin1String(" v") + Settings::getInfoRelease();
    const QString html = HtmlContent(background, QString(), device);
    currentPage->changePage([this, html] { currentPage->mainFrame()->setHtml(html, QUrl()); });
}

} // namespace Varnel
