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
#include "mainwindow.h"
#include "networkaccessmanager.h"
#include "replykeeper.h"
#include "screensaver.h"
#include "settings.h"
#include "usbdrive.h"

namespace Varnel {

namespace {

using namespace std::chrono_literals;

/// Limits of the pause between repeated probes.
constexpr std::chrono::seconds shortestProbePause = 1s;
constexpr std::chrono::seconds longestProbePause = 5min;

} // namespace

WebPage::WebPage(MainWindow* mainWindow, QObject* parent)
    : QWebPage(parent)
    , mainWindow(mainWindow)
    , downloadHandler(new DownloadHandler(mainWindow))
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
    // Requests that are still open finish while the engine's page goes down; they have nobody left to tell.
    disconnect(networkAccessManager(), nullptr, this, nullptr);
    downloadHandler->deleteLater();
}

bool WebPage::acceptNavigationRequest(QWebFrame* frame, const QNetworkRequest& request, NavigationType type)
{
    if (frame == mainFrame()) {
        currentUrl = request.url();
        // What a form sends may take its time.
        const bool isForm = type == NavigationTypeFormSubmitted || type == NavigationTypeFormResubmitted;
        mainWindow->getNetworkAccessManager()->expectPage(isForm ? QUrl() : currentUrl);
        emit loadingUrl(currentUrl);
    }
    return QWebPage::acceptNavigationRequest(frame, request, type);
}

QString WebPage::chooseFile(QWebFrame* /*frame*/, const QString& /*suggestedFile*/)
{
    return chooseUploadFile(mainWindow);
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
    reply->deleteLater(); // the download keeps what it needs
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
    // A download asks its user in an event loop of its own, in which the page may go elsewhere. The engine
    // does not survive that while it is still in the middle of handing the reply over, so the download begins
    // once it is done; the reply, which may have finished already, is kept until then.
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

WebView::WebView(MainWindow* mainWindow, QWidget* parent)
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
    // No text on any page may be selected by a finger that rests too long.
    customCss = QLatin1String("data:text/css;charset=utf-8;base64,") +
                QLatin1String(QByteArrayLiteral("body { -webkit-user-select: none; }").toBase64());
    page()->settings()->setUserStyleSheetUrl(QUrl(customCss));
    retryTimer = new QTimer(this);
    retryTimer->setTimerType(Qt::PreciseTimer); // a coarse one may be early by a twentieth
    retryTimer->setInterval(retryPause);
    retryTimer->setSingleShot(true);
    connect(retryTimer, &QTimer::timeout, this, &WebView::handleRetryTimer);
}

WebView::~WebView()
{
    // The same for the page's last words and for a probe that is still out.
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

void WebView::downloadRequested(QNetworkRequest /*request*/)
{
    // A download begins when the content itself proves unshowable, never by a link's wish.
}

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
    // A probe's reply stays until the next one goes out, so that years of retries add up to one reply.
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
            // onDefault stays: the timer ticks on, but no other probe goes out until the page itself fails
            // again.
            startRetryTimer(retryPause);
        }
        return;
    }
    loadUrl(reply->url());
    onDefault = false;
}

/// Ends repeated probes, as something else than the error page is about to be shown. A single probe goes on.
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
    // The engine would send a disabled page the Tab key that moves the focus on.
    // NOLINTNEXTLINE(bugprone-parent-virtual-call): past the engine on purpose
    return isEnabled() ? QWebView::focusNextPrevChild(next) : QWidget::focusNextPrevChild(next);
}

} // namespace Varnel
