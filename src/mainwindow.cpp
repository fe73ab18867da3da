// SPDX-License-Identifier: MIT
#include "mainwindow.h"

#include <chrono>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>
#include <QWebSettings>
#include <QtDebug>

#include "enginecaches.h"
#include "logline.h"
#include "networkaccessmanager.h"
#include "screensaver.h"
#include "settings.h"
#include "ui_mainwindow.h"
#include "webview.h"

namespace Varnel {

MainWindow* main_window = nullptr;

namespace {

using namespace std::chrono_literals;

constexpr auto frontPollPeriod = 2000ms;

/// The address of a controller without network settings.
const QString noAddress = QStringLiteral("0.0.0.0");

bool isUsable(const QString& url)
{
    return !url.isEmpty() && url != noAddress;
}

/// Keeps the engine's local storage across restarts, but not its icon database, which would ask every
/// controller for a /favicon.ico and report a missing one as an error, and not its application cache, which
/// would show a page after a restart without its server.
void enablePersistentStorage()
{
    QWebSettings::enablePersistentStorage(Settings::getWebCachePath());
    QWebSettings::setIconDatabasePath(QString());
    QWebSettings::globalSettings()->setAttribute(QWebSettings::OfflineWebApplicationCacheEnabled, false);
    // Not the setting: for an empty one the engine has a place of its own.
    QDir directory(QWebSettings::offlineWebApplicationCachePath());
    const QStringList stored = directory.entryList({QStringLiteral("ApplicationCache.db*")}, QDir::Files);
    for (const QString& file : stored) { // left by a version that used the cache
        directory.remove(file);
    }
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , ui(std::make_unique<Ui::MainWindow>())
{
    ui->setupUi(this);
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint);
    networkAccessManager = new NetworkAccessManager(nullptr);
    connect(networkAccessManager, &NetworkAccessManager::firstRequestStatus, this,
            &MainWindow::firstRequestStatus);
    enablePersistentStorage();
    limitEngineCaches();
    createView();
    connectView();
    setMouseTracking(true);
    ScreenSaver::instance()->activate(true);
    ScreenSaver::instance()->handleMouseMove(this);
    ui->verticalLayout->addWidget(webview);
    webview->hide();
    showFirstLabel();
    frontTimer->setInterval(frontPollPeriod);
    frontTimer->start();
}

MainWindow::~MainWindow()
{
    // The view goes first: its page uses the access manager until it is destroyed.
    delete webview;
    delete networkAccessManager;
}

void MainWindow::createView()
{
    webview = new WebView(this, nullptr);
    frontTimer = new QTimer(this);
    frontTimer->setTimerType(Qt::PreciseTimer); // a coarse timer may be 5 % late
    language = QStringLiteral("default");
}

void MainWindow::connectView()
{
    connect(webview, &QWebView::loadStarted, this, &MainWindow::webViewLoadStarted);
    connect(webview, &QWebView::loadFinished, this, &MainWindow::webViewLoadFinished);
    connect(webview, &QWebView::loadProgress, this, &MainWindow::webViewloadProgress);
    connect(frontTimer, &QTimer::timeout, this, &MainWindow::watchFrontInterface);
    // The page takes no input while the screen is dark.
    connect(ScreenSaver::instance(), &ScreenSaver::activated, webview, &QWidget::setDisabled);
}

void MainWindow::showFirstLabel()
{
    if (Settings::hasGPIOPort()) {
        ui->lblProgress->setText(Settings::getUIMsgWaitingForNetworkConfiguration());
        ui->lblProgress->show();
    } else if (Settings::getUrl().isEmpty()) {
        ui->lblProgress->setText(QStringLiteral("No serial port and no url configured in ini file"));
        ui->lblProgress->show();
    } else {
        openUrl(Settings::getUrl());
    }
}

void MainWindow::openUrl(const QString& url)
{
    qDebug() << "MainWindow::openUrl " << url;
    if (url == downloadUrl || !isUsable(url)) {
        qDebug() << "Can't open url (" << downloadUrl << ")";
        return;
    }
    setCurrentUrl(url);
    QTimer::singleShot(0, this, &MainWindow::startDownload);
}

void MainWindow::openUrlForce(const QString& url, bool force)
{
    QString u = url;
    qDebug() << "MainWindow::openUrlForce " << url;
    if (u.isEmpty() && lastUrl.isEmpty()) {
        displayError(language);
    }
    if (u.isEmpty()) {
        u = lastUrl;
    }
    if ((u == downloadUrl && !force) || !isUsable(u)) {
        qDebug() << "Can't open url (" << force << ", " << downloadUrl << ")";
        return;
    }
    setCurrentUrl(u);
    webview->setUrl(QUrl(u));
    lastUrl = u;
}

void MainWindow::setCurrentUrl(const QString& url)
{
    downloadUrl = url;
    ScreenSaver::instance()->setStopBuzzerServer(downloadUrl);
}

void MainWindow::setDefaultUrl(const QString& url)
{
    defaultUrl = url;
    webview->setDefaultUrl(url);
}

void MainWindow::reloadUrl()
{
    if (!downloadUrl.isEmpty()) {
        QTimer::singleShot(0, this, &MainWindow::startDownload);
    }
}

void MainWindow::displayError(QString language)
{
    // The controller may be gone for good, and the next one may use the same names for other pictures.
    clearEngineCaches();
    webview->displayError(std::move(language));
}

void MainWindow::setLanguage(QString lang)
{
    if (lang == language) {
        return;
    }
    qDebug() << "Set language to" << lang << "(was" << language << ")";
    language = std::move(lang);
    webview->setLanguage(language);
}

void MainWindow::keyPressEvent(QKeyEvent* /*event*/) {}

void MainWindow::startDownload()
{
    logLine(QStringLiteral("Downloading %1").arg(downloadUrl));
    networkAccessManager->reset();
    ui->lblProgress->setText(Settings::getUIMsgConnecting());
    ui->lblProgress->show();
    webview->hide();
    webview->loadRequest(QNetworkRequest(QUrl(downloadUrl)));
}

void MainWindow::webViewLoadStarted() {}

void MainWindow::webViewLoadFinished() {}

void MainWindow::webViewloadProgress(int /*progress*/) {}

void MainWindow::firstRequestStatus(bool /*error*/)
{
    // After an error the view shows the error page.
    webview->setVisible(true);
    ui->lblProgress->hide();
}

void MainWindow::watchFrontInterface()
{
    static bool loadInfoprev = false;

    const QString path =
        QLatin1String("/sys/class/net/") + Settings::getNetFrontIntf() + QLatin1String("/operstate");
    bool up = false;
    QFile file(path);
    if (QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly) && !file.atEnd()) {
        up = file.readLine().contains("up");
    }
    if (up && !loadInfoprev) {
        qDebug() << "Load front connection info page";
        webview->displayInfoFront(language);
    } else if (up != loadInfoprev) {
        qDebug() << "Reload last page";
        openUrlForce(lastUrl, true);
    }
    loadInfoprev = up;
}

} // namespace Varnel
