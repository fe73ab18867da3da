// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <QVector>
#include <QWebPage>
#include <QWebView>

class QNetworkReply;

namespace Varnel {

class DownloadHandler;
class PageWindow;

/// The page: names the panel to the server, hands what the engine cannot show to the download, and tells the
/// view how each reply ended.
class WebPage : public QWebPage
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WebPage)

public:
    /// `mainWindow` is not owned and must outlive the page; its access manager becomes the page's.
    WebPage(PageWindow* mainWindow, QObject* parent);
    ~WebPage() override;

    /// Runs `change`, which puts another page into the main frame: at once, or, while a script's dialog is
    /// open, after the dialog is closed and the script has ended. The engine crashes when the page is
    /// replaced while one of its scripts runs. If several changes wait, only the last one is run.
    void changePage(std::function<void()> change);

signals:
    /// The main frame is about to load `url`.
    void loadingUrl(QUrl url);
    /// A reply, of the page or of a part of it, has ended; `noerr` is true when it ended well.
    void responseError(bool noerr);

public slots:
    void handleUnsupportedContent(QNetworkReply* reply);
    void httpResponseFinished(QNetworkReply* reply);
    /// Kept, not connected.
    void retryLoad();

protected:
    bool acceptNavigationRequest(QWebFrame* frame, const QNetworkRequest& request,
                                 NavigationType type) override;
    /// Lets the user choose a file of the USB drive; both arguments are ignored. Empty when none was chosen.
    QString chooseFile(QWebFrame* frame, const QString& suggestedFile) override;
    QString userAgentForUrl(const QUrl& url) const override;
    /// Refuses the toolkit's dialog for several files, which would show the panel's whole file system. The
    /// engine then asks for one file with chooseFile().
    bool supportsExtension(Extension extension) const override;
    /// The dialogs of a script, as the engine shows them. None is shown while the panel itself changes the
    /// page.
    void javaScriptAlert(QWebFrame* frame, const QString& message) override;
    bool javaScriptConfirm(QWebFrame* frame, const QString& message) override;
    bool javaScriptPrompt(QWebFrame* frame, const QString& message, const QString& defaultValue,
                          QString* result) override;

private:
    void queueDownload(QNetworkReply* reply);
    void ask(const std::function<void()>& show);
    void afterDialog();
    void releaseReply(QNetworkReply* reply);

    PageWindow* mainWindow = nullptr;
    DownloadHandler* downloadHandler = nullptr;
    QUrl currentUrl;   ///< the last navigation of the main frame
    QTimer retryTimer; ///< kept, never started
    int openDialogs = 0;
    bool changesPage = false;                         ///< the panel itself is changing the page
    std::function<void()> waitingChange;              ///< waits for the end of a script
    QVector<QPointer<QNetworkReply>> finishedReplies; ///< to delete after the end of a script
};

/// The view: shows the page, the panel's own error and info pages, and tries again after a failed load.
///
/// A reply that fails shows the error page and starts the retry timer. When it fires, the default address is
/// probed with a request of the view's own, and loaded if the probe succeeds. After a failed probe no other
/// is sent until a reply of the page fails again, to spare the controller's server. Where the settings ask
/// for it (Network/ProbeAgain), more probes follow, at growing pauses.
class WebView : public QWebView
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WebView)

public:
    /// `mainWindow` is not owned and must outlive the view.
    WebView(PageWindow* mainWindow, QWidget* parent);
    ~WebView() override;

    WebPage* webPage() const { return currentPage; }

    void loadUrl(const QUrl& url);
    /// Loads `url` without keeping it as the address that a retry asks for.
    void setUrl(const QUrl& url);
    /// Loads `request` as it is, its own headers included.
    void loadRequest(const QNetworkRequest& request);
    /// Loads again what was last asked for.
    void reloadUrl();
    /// The address on screen, or, while there is none, the one last asked for.
    QUrl url() const;

    /// The address that is probed before a retry.
    void setDefaultUrl(const QString& url);
    /// Chooses the pictures of the error and info pages; takes effect when the next one is shown.
    void setLanguage(const QString& lang);

    /// Shows the panel's error page, or the info page of the service link, in the view's language whatever
    /// `name` says. A picture that is missing falls back to the default language's, then to a text.
    void displayError(QString name);
    void displayInfoFront(QString name);
    /// The frame of both pages around a background and the texts in the two lower corners.
    QString HtmlContent(QString background, QString left, QString right);

    /// Probes the default address, unless a probe is out or has failed. The argument is not used.
    void tryload(QUrl url);

public slots:
    /// Connected, without effect: only content that the engine cannot show is downloaded.
    void downloadRequested(QNetworkRequest request);
    void handleLoadFinished(bool noerr);
    void handleRetryTimer();
    void tryloadFinished(QNetworkReply* reply);

protected:
    bool focusNextPrevChild(bool next) override;

private:
    void connectPage();
    void startRetryTimer(std::chrono::seconds pause);
    void endProbing();
    void dropFinishedProbes();
    void showPicturePage(const QString& picture, const QString& tail, const QString& fallback);

    QString customCss;
    QUrl initialUrl; ///< the address last asked for
    QUrl defaultUrl;
    bool onDefault = false; ///< a probe is out, or has failed
    QString language;
    WebPage* currentPage = nullptr;
    QNetworkAccessManager netman; ///< for the probes alone: they carry no credentials and are not logged
    QTimer* retryTimer = nullptr;
    const std::chrono::seconds retryPause;
    /// From the next failed probe to one more, where the settings ask for it.
    std::chrono::seconds probePause;
};

} // namespace Varnel
