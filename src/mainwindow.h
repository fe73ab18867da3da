// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QFileSystemWatcher>
#include <QMainWindow>
#include <QString>

#include "webbrowser.h"

class QTimer;

namespace Ui {
class MainWindow;
}

namespace Varnel {

class NetworkAccessManager;
class WebView;

/// The panel's only window: a label while there is nothing to show, else the web view. It decides which page
/// the view shows: the controller's, or the info page while the service link is up.
class MainWindow : public QMainWindow, public WebBrowser, public PageWindow
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MainWindow)

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    /// The access manager of the page; owned by the window.
    NetworkAccessManager* getNetworkAccessManager() const override { return networkAccessManager; }
    QWidget* dialogParent() override { return this; }

    /// Loads `url` from the event loop, behind the connecting label, unless it is empty, "0.0.0.0" or already
    /// the current page.
    void openUrl(const QString& url) override;
    /// Loads `url`, or the last page where it is empty, at once and without the label; the current page only
    /// if `force` is set. With nothing to load, shows the error page.
    void openUrlForce(const QString& url, bool force);
    /// Sets the address that the view probes before it retries.
    void setDefaultUrl(const QString& url);
    void reloadUrl() override;

    /// Shows the error page.
    void displayError(QString language);
    /// The language code of the web interface, "default" until the controller names one.
    QString getLanguage() const { return language; }
    void setLanguage(QString lang);

protected:
    /// Swallows every key: the panel has no keyboard, and no key may move a page behind the user's back.
    void keyPressEvent(QKeyEvent* event) override;

private slots:
    void startDownload();
    // Connected, without effect.
    void webViewLoadStarted();
    void webViewLoadFinished();
    void webViewloadProgress(int progress);
    void firstRequestStatus(bool error);
    void watchFrontInterface();

private:
    void createView();
    void connectView();
    void showFirstLabel();
    void setCurrentUrl(const QString& url);

    std::unique_ptr<Ui::MainWindow> ui;
    QString downloadUrl;         ///< the page that the view was last asked for
    QFileSystemWatcher fwatcher; ///< kept, never used
    QString lastUrl;             ///< the page that openUrlForce last loaded
    QString defaultUrl;          ///< kept, never read
    NetworkAccessManager* networkAccessManager = nullptr;
    WebView* webview = nullptr;
    QTimer* frontTimer = nullptr;
    QString language;
};

/// The panel's window, set by main() for the life of the event loop.
extern MainWindow* main_window;

} // namespace Varnel
