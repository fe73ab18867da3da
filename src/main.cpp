// SPDX-License-Identifier: MIT
#include <cstdio>
#include <memory>
#include <tuple>

#include <QApplication>
#include <QLoggingCategory>
#include <QNetworkInterface>
#include <QScreen>
#include <QtDebug>

#include "commandline.h"
#include "enginesetup.h"
#include "enginewarmer.h"
#include "logline.h"
#include "mainwindow.h"
#include "screensaver.h"
#include "settings.h"
#include "signalwatcher.h"
#include "udphandler.h"
#include "watchdog.h"

using namespace Varnel;

namespace {

/// Switches debug lines on: some distributions' logging rules switch them off.
void prepareLog()
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=true"));
}

void logBanner()
{
    logStamped(QStringLiteral("Running VarnelBrowser on embedded platform"));
    qDebug() << "Running on ARM";
    qDebug() << "Running on linux";
}

/// Reads the options. Neither a request for help nor an error ends the program: nobody would start it again.
CommandLine readCommandLine(const QStringList& arguments)
{
    CommandLine commandLine = CommandLine::parse(arguments.mid(1));
    if (commandLine.help) {
        // An error means that nobody reads the standard output.
        std::ignore = std::fputs(qPrintable(CommandLine::helpText(arguments.first())), stdout);
        std::ignore = std::fflush(stdout); // to a pipe, too, where it would be buffered until the end
    }
    if (!commandLine.error.isEmpty()) {
        qDebug() << qPrintable(commandLine.error);
    }
    return commandLine;
}

void applyCommandLine(const CommandLine& commandLine)
{
    if (commandLine.verbose) {
        Settings::setLogVerbose(true);
    }
    if (commandLine.hasDevice) {
        Settings::setInfoDevice(commandLine.device);
    }
    if (commandLine.hasRelease) {
        Settings::setInfoRelease(commandLine.release);
    }
    qDebug() << "verbose = " << Settings::isLogVerbose();
    qDebug() << "device  = " << Settings::getInfoDevice();
    qDebug() << "release = " << Settings::getInfoRelease();
}

/// The broadcast address of the interface `name`. Ends the program when the interface does not exist or has
/// no address, because the panel does not work without the controller's link. The service manager starts it
/// again.
QString broadcastAddress(const QString& name)
{
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (int i = 0; i < interfaces.size(); ++i) {
        if (interfaces.at(i).name() != name) {
            continue;
        }
        qDebug() << "Interface found. " << name << " = " << i;
        const QList<QNetworkAddressEntry> entries = interfaces.at(i).addressEntries();
        if (entries.isEmpty()) {
            qFatal("Network interface %s has no address", qPrintable(name));
        }
        return entries.first().broadcast().toString();
    }
    qDebug() << "UDP interface not found, use default";
    qFatal("Network interface %s does not exist", qPrintable(name));
}

QString chooseUdpAddress()
{
    if (!Settings::getNetUdpAddr().isEmpty()) {
        return Settings::getNetUdpAddr();
    }
    if (Settings::getNetUdpIntf().isEmpty()) {
        qDebug() << "No UDP config, use default";
        return QStringLiteral("0.0.0.0");
    }
    return broadcastAddress(Settings::getNetUdpIntf());
}

/// Fills the screen, also without a window manager, which is what maximises a window.
void showOnWholeScreen(QWidget* window)
{
    window->setGeometry(QGuiApplication::primaryScreen()->availableGeometry());
    window->showMaximized();
}

} // namespace

int main(int argc, char* argv[])
{
    prepareEngine();
    prepareLog();
    logBanner();
    QApplication application(argc, argv);
    const SignalWatcher signalWatcher;
    Watchdog watchdog;
    const CommandLine commandLine = readCommandLine(QCoreApplication::arguments());
    Settings::load();
    applyCommandLine(commandLine);
    if (Settings::getUIHideCursor()) {
        QApplication::setOverrideCursor(Qt::BlankCursor);
    }

    auto window = std::make_unique<MainWindow>();
    main_window = window.get();
    ScreenSaver::instance()->install();
    auto udpHandler = std::make_unique<UdpHandler>(
        chooseUdpAddress(), static_cast<short>(Settings::getNetUdpPort()), window.get(), nullptr);
    udpHandler->init();
    watchdog.announceReady();
    showOnWholeScreen(window.get());
    const EngineWarmer engineWarmer;

    const int exitCode = QApplication::exec();

    watchdog.announceEnd();
    udpHandler->stop();
    udpHandler.reset();
    ScreenSaver::instance()->uninstall();
    window.reset();
    main_window = nullptr;
    // No event loop is left to delete what was passed to deleteLater().
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return exitCode;
}
