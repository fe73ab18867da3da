// SPDX-License-Identifier: MIT
#include "webview.h"

#include <chrono>
#include <memory>

#include <QFileInfo>
#include <QNetworkReply>
#include <QWebFrame>
#include <QWebSettings>
#include <QtDebug>

#include "downloadhandler.h"
#include "networkaccessmanager.h"
#include "replykeeper.h"
#include "screensaver.h"
#include "settings.h"
#include "usbdrive.h"
#include "webbrowser.h"

namespace Varnel {

namespace {

using namespace std::chrono_literals;

/// Limits of the pause between repeated probes.
constexpr std::chrono::seconds shortestProbePause = 1s;
constexpr std::chrono::seconds longestProbePause = 5min;

} // namespace

WebPage::WebPage(PageWindow* mainWindow, QObject* parent)
    : QWebPage(parent)
    , mainWindow(mainWindow)
    , downloadHandler(new DownloadHandler(mainWindow->dialogParent()))
{
    setNetworkAccessManager(mainWindow->getNetworkAccessManager());
    connect(this, &QWebPage::unsupportedContent, this, &WebPage::handleUnsupportedContent);
    connect(networkAccessManager(), &QNetworkAccessManager::finished, this, &WebPage::httpResponseFinished);
    mainFrame()->setScrollBarPolicy(Qt::Vertical, Qt::ScrollBarAlwaysOff);
    mainFrame()->setScrollBarPolicy(Qt::Horizontal, Qt::ScrollBarAlwaysOff);
    // The engine's own error page would replace the controller's page at each click on a download link.
    settings()->setAttribute(QWebSettings::ErrorPageEnabled, false);
}

WebPage::~WebPage()
{
    // Open requests finish while the base class is destroyed, when this object's slots can no longer run.
    disconnect(networkAccessManager(), nullptr, this, nullptr);
    downloadHandler->deleteLater();
}

bool WebPage::acceptNavigationRequest(QWebFrame* frame, const QNetworkRequest& request, NavigationType type)
{
    if (frame == mainFrame()) {
        currentUrl = request.url();
        // The server may need time for what a form sends.
        const bool isForm = type == NavigationTypeFormSubmitted || type == NavigationTypeFormResubmitted;
        mainWindow->getNetworkAccessManager()->expectPage(isForm ? QUrl() : currentUrl);
        emit loadingUrl(currentUrl);
    }
    return QWebPage::acceptNavigationRequest(frame, request, type);
}

QString WebPage::chooseFile(QWebFrame* /*frame*/, const QString& /*suggestedFile*/)
{
    return chooseUploadFile(mainWindow->dialogParent());
}

QString WebPage::userAgentForUrl(const QUrl& /*url*/) const
{
    return QStringLiteral("Varnel VarnelBrowser/" VARNEL_VERSION " WebKit");
}

bool WebPage::supportsExtension(Extension extension) const
{
    return extension != ChooseMultipleFilesExtension && QWebPage::supportsExtension(extension);
}

void WebPage::handleUnsupportedContent(QNetworkReply* reply)
{
    qDebug() << "WebPage::UnsupportedContent";
    reply->deleteLater(); // the download keeps the reply alive
    if (reply->error() == QNetworkReply::NoError) {
        queueDownload(reply);
        return;
    }
    if (reply->url() == currentUrl) {
        changePage([this, base = reply->url()] {
            mainFrame()->setHtml(
                QStringLiteral("<html><body>An error occurred while loading page.</body></html>"), base);
        });
    }
    reply->deleteLater();
}

void WebPage::queueDownload(QNetworkReply* reply)
{
    // A download asks its user in a nested event loop, in which another page may be loaded. The engine
    // crashes when that happens while it hands the reply over, so the download begins afterwards. The reply
    // may have finished by then and is kept.
    const auto keeper = std::make_shared<ReplyKeeper>(reply);
    const auto begin = [this, keeper] {
        if (keeper->get() != nullptr) {
            downloadHandler->start(keeper->get());
        }
    };
    QMetaObject::invokeMethod(this, begin, Qt::QueuedConnection);
}

void WebPage::httpResponseFinished(QNetworkReply* reply)
{
    const bool noerr = reply->error() == QNetworkReply::NoError;
    if (!noerr) {
        qDebug() << "HTTP ERROR";
    }
    emit responseError(noerr);
    releaseReply(reply);
}

void WebPage::retryLoad()
{
    qDebug() << "WebPage::retryLoad " << currentUrl.toString();
    emit loadingUrl(currentUrl);
}

WebView::WebView(PageWindow* mainWindow, QWidget* parent)
    : QWebView(parent)
    , language(QStringLiteral("default"))
    , currentPage(new WebPage(mainWindow, this))
    , retryPause(Settings::getNetRetryTimeout())
    , probePause(qMax(retryPause, shortestProbePause))
{
    setMouseTracking(true);
    ScreenSaver::instance()->handleMouseMove(this);
    setPage(currentPage);
    connectPage();
    page()->setForwardUnsupportedContent(true);
    // A finger that rests on a text must not select it.
    customCss = QLatin1String("data:text/css;charset=utf-8;base64,") +
                QLatin1String(QByteArrayLiteral("body { -webkit-user-select: none; }").toBase64());
    page()->settings()->setUserStyleSheetUrl(QUrl(customCss));
    retryTimer = new QTimer(this);
    retryTimer->setTimerType(Qt::PreciseTimer); // a coarse timer may be 5 % early
    retryTimer->setInterval(retryPause);
    retryTimer->setSingleShot(true);
    connect(retryTimer, &QTimer::timeout, this, &WebView::handleRetryTimer);
}

WebView::~WebView()
{
    // As above: page and probe may send signals while they are destroyed.
    disconnect(currentPage, nullptr, this, nullptr);
    disconnect(&netman, nullptr, this, nullptr);
}

void WebView::connectPage()
{
    connect(currentPage, &WebPage::loadingUrl, this, &QWebView::urlChanged);
    connect(currentPage, &QWebPage::downloadRequested, this, &WebView::downloadRequested);
    connect(currentPage, &WebPage::responseError, this, &WebView::handleLoadFinished);
}

void WebView::loadUrl(const QUrl& url)
{
    endProbing();
    initialUrl = url;
    qDebug() << "WebView::loadUrl() " << initialUrl.toString();
    currentPage->changePage([this, url] { load(url); });
}

void WebView::setUrl(const QUrl& url)
{
    endProbing();
    currentPage->changePage([this, url] { QWebView::setUrl(url); });
}

void WebView::loadRequest(const QNetworkRequest& request)
{
    endProbing();
    qDebug() << "WebView::loadRequest";
    initialUrl = request.url();
    currentPage->changePage(
        [this, request] { load(request, QNetworkAccessManager::GetOperation, QByteArray()); });
}

void WebView::reloadUrl()
{
    endProbing();
    qDebug() << "WebView::reloadUrl() " << initialUrl.toString();
    currentPage->changePage([this, url = initialUrl] { load(url); });
}

QUrl WebView::url() const
{
    const QUrl current = QWebView::url();
    return current.isEmpty() ? initialUrl : current;
}

void WebView::setDefaultUrl(const QString& url)
{
    defaultUrl = QUrl(url);
}

void WebView::setLanguage(const QString& lang)
{
    if (lang == language) {
        return;
    }
    qDebug() << "wv: Set language to" << lang << "(was" << language << ")";
    language = lang;
}

void WebView::downloadRequested(QNetworkRequest /*request*/) {}

void WebView::handleLoadFinished(bool noerr)
{
    if (noerr) {
        return;
    }
    qDebug() << "WebView::handleLoadFinished() -> fail";
    onDefault = false;
    displayError(QStringLiteral("default"));
    startRetryTimer(retryPause);
}

void WebView::startRetryTimer(std::chrono::seconds pause)
{
    // A running timer is left alone: a burst of failures gives one retry, counted from the first.
    if (!retryTimer->isActive()) {
        retryTimer->start(pause);
    }
}

void WebView::handleRetryTimer()
{
    qDebug() << "WebView::handleRetryTimer()";
    tryload(initialUrl);
}

void WebView::tryload(QUrl /*url*/)
{
    if (onDefault) {
        qDebug() << "onDefault";
        startRetryTimer(retryPause);
        return;
    }
    dropFinishedProbes();
    connect(&netman, &QNetworkAccessManager::finished, this, &WebView::tryloadFinished);
    onDefault = true;
    QNetworkRequest probe(defaultUrl);
    if (Settings::getNetProbeAgain()) {
        const std::chrono::milliseconds limit = std::chrono::seconds(Settings::getNetPageTimeout());
        probe.setTransferTimeout(limit.count() > 0 ? static_cast<int>(limit.count())
                                                   : QNetworkRequest::DefaultTransferTimeoutConstant);
    }
    netman.get(probe);
}

void WebView::dropFinishedProbes()
{
    // A probe's reply is kept until the next probe, so there is never more than one.
    const auto probes = netman.findChildren<QNetworkReply*>();
    for (QNetworkReply* probe : probes) {
        if (probe->isFinished()) {
            probe->deleteLater();
        }
    }
}

void WebView::tryloadFinished(QNetworkReply* reply)
{
    disconnect(&netman, &QNetworkAccessManager::finished, this, &WebView::tryloadFinished);
    if (reply->error() != QNetworkReply::NoError) {
        if (Settings::getNetProbeAgain()) {
            onDefault = false;
            startRetryTimer(probePause);
            probePause = qMax(retryPause, qMin(2 * probePause, longestProbePause));
        } else {
            // onDefault stays set: the timer goes on, but no probe is sent until a reply of the page fails.
            startRetryTimer(retryPause);
        }
        return;
    }
    loadUrl(reply->url());
    onDefault = false;
}

/// Ends repeated probes before something else than the error page is shown. A single probe goes on.
void WebView::endProbing()
{
    if (Settings::getNetProbeAgain()) {
        disconnect(&netman, nullptr, this, nullptr);
        retryTimer->stop();
        onDefault = false;
        probePause = qMax(retryPause, shortestProbePause);
    }
}

bool WebView::focusNextPrevChild(bool next)
{
    // The engine would send the Tab key to a disabled page.
    // NOLINTNEXTLINE(bugprone-parent-virtual-call): past the engine on purpose
    return isEnabled() ? QWebView::focusNextPrevChild(next) : QWidget::focusNextPrevChild(next);
}

} // namespace Varnel
