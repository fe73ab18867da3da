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

/// The documented lines are plain debug lines, which some distributions' logging rules switch off.
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

/// Neither a request for help nor a mistake keeps the panel from coming up: nobody is there to start it
/// again.
CommandLine readCommandLine(const QStringList& arguments)
{
    CommandLine commandLine = CommandLine::parse(arguments.mid(1));
    if (commandLine.help) {
        // Who closed the standard output does not want the help.
        std::ignore = std::fputs(qPrintable(CommandLine::helpText(arguments.first())), stdout);
        std::ignore = std::fflush(stdout); // a pipe would keep it until the panel ends
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

/// The broadcast address of the interface `name`. The panel ends when there is no such interface or it has no
/// address: without the controller's link it is of no use, and a service manager starts it again.
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

/// Fills the screen. Maximising is the window manager's work; where none runs, as on many panels, the window
/// keeps the size that it was given before.
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
    // What asked to be deleted later has no loop left to do it.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return exitCode;
}
