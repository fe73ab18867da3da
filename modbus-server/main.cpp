// SPDX-License-Identifier: MIT
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>

#include "businterface.h"
#include "log.h"
#include "logcategories.h"
#include "options.h"
#include "service.h"
#include "signalwatcher.h"
#include "updatesocket.h"
#include "updatesocketpath.h"

using namespace Varnel;

namespace {

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

/// Without the bus the server gets no more updates.
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
    logToStandardError("varnel-modbus-server");
    QCoreApplication application(argc, argv);
    const Invocation<ServerOptions> commandLine = parseCommandLine(QCoreApplication::arguments());
    if (!commandLine.options) {
        return commandLine.end();
    }
    if (commandLine.options->verbose) {
        QLoggingCategory::setFilterRules(QStringLiteral("varnel.modbus.clients.debug=true"));
    }
    const SignalWatcher signalWatcher;

    Service service(commandLine.options->service);
    BusInterface interface(service);
    QDBusConnection connection = connectToBus(commandLine.options->bus);
    if (!publishOnBus(connection, interface)) {
        return EXIT_FAILURE;
    }
    endWithBus(connection, interface);
    UpdateSocket updates(service);
    if (commandLine.options->bus == QLatin1String("system")) {
        updates.listen(QLatin1String(updateSocketPath));
    }
    qCInfo(lcServer).noquote() << "ready on D-Bus as" << BusInterface::serviceName();
    service.restore();
    return QCoreApplication::exec();
}
