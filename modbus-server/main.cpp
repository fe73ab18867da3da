// SPDX-License-Identifier: MIT
#include <csignal>
#include <cstdio>
#include <tuple>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>

#include "businterface.h"
#include "log.h"
#include "options.h"
#include "service.h"

using namespace Varnel;

namespace {

int signalPipe[2] = {-1, -1};

void noteSignal(int /*number*/)
{
    const char octet = 0;
    if (::write(signalPipe[1], &octet, 1) != 1) {
        // The pipe is full of earlier signals: the end is on its way.
    }
}

/// SIGTERM and SIGINT end the event loop, so that the interface is closed in order.
void quitOnSignals(QCoreApplication& application)
{
    if (::pipe(signalPipe) != 0) {
        return;
    }
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &application);
    QObject::connect(notifier, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
    std::ignore = std::signal(SIGTERM, &noteSignal);
    std::ignore = std::signal(SIGINT, &noteSignal);
}

QDBusConnection connectToBus(const QString& bus)
{
    if (bus == QLatin1String("system")) {
        return QDBusConnection::systemBus();
    }
    if (bus == QLatin1String("session")) {
        return QDBusConnection::sessionBus();
    }
    return QDBusConnection::connectToBus(bus, BusInterface::serviceName());
}

/// Puts the object on the bus before the name, so that the first call finds it. False with a message on
/// failure.
bool publishOnBus(QDBusConnection& connection, BusInterface& interface)
{
    if (!connection.isConnected()) {
        qCCritical(lcServer).noquote() << "cannot reach D-Bus:" << connection.lastError().message();
        return false;
    }
    constexpr auto exported = QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportAllProperties;
    if (!connection.registerObject(BusInterface::objectPath(), &interface, exported) ||
        !connection.registerService(BusInterface::serviceName())) {
        const QString why = connection.lastError().message();
        qCCritical(lcServer).noquote()
            << "cannot own" << BusInterface::serviceName()
            << "on D-Bus:" << (why.isEmpty() ? QStringLiteral("another server runs") : why);
        return false;
    }
    return true;
}

/// Without the bus nobody can feed us any more.
void endWithBus(QDBusConnection& connection, BusInterface& interface)
{
    connection.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                       QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"),
                       &interface,
                       SLOT(busLost())); // QtDBus has no connection by member pointer
}

} // namespace

int main(int argc, char* argv[])
{
    logToStandardError();
    QCoreApplication application(argc, argv);
    const CommandLine commandLine = parseCommandLine(QCoreApplication::arguments());
    if (!commandLine.options) {
        std::ignore = std::fputs(qPrintable(commandLine.output), commandLine.status == 0 ? stdout : stderr);
        return commandLine.status;
    }
    if (commandLine.options->verbose) {
        QLoggingCategory::setFilterRules(QStringLiteral("varnel.modbus.clients.debug=true"));
    }
    quitOnSignals(application);

    Service service(commandLine.options->service);
    BusInterface interface(service);
    QDBusConnection connection = connectToBus(commandLine.options->bus);
    if (!publishOnBus(connection, interface)) {
        return EXIT_FAILURE;
    }
    endWithBus(connection, interface);
    qCInfo(lcServer).noquote() << "ready on D-Bus as" << BusInterface::serviceName();
    service.restore();
    return QCoreApplication::exec();
}
