// SPDX-License-Identifier: MIT
#include "businterface.h"

#include <cstdlib>

#include <QCoreApplication>

#include "logcategories.h"
#include "service.h"

namespace Varnel {

QString BusInterface::serviceName()
{
    return QStringLiteral("org.varnel.ModbusServer1");
}

QString BusInterface::objectPath()
{
    return QStringLiteral("/org/varnel/ModbusServer1");
}

BusInterface::BusInterface(Service& service, QObject* parent)
    : QObject(parent)
    , service(service)
{
}

QString BusInterface::state() const
{
    return service.state();
}

QString BusInterface::endpoint() const
{
    return service.endpoint();
}

int BusInterface::clients() const
{
    return service.clientCount();
}

int BusInterface::registers() const
{
    return service.registerCount();
}

qulonglong BusInterface::updates() const
{
    return service.updateCount();
}

void BusInterface::Start(const QString& initFile)
{
    answer(service.start(initFile));
}

void BusInterface::Stop()
{
    service.stop();
}

void BusInterface::Update(const QString& command)
{
    answer(service.update(command.toUtf8()));
}

void BusInterface::busLost()
{
    qCCritical(lcServer) << "the connection to D-Bus is lost";
    QCoreApplication::exit(EXIT_FAILURE);
}

void BusInterface::answer(const Outcome<>& outcome)
{
    if (!outcome && calledFromDBus()) {
        sendErrorReply(serviceName() + QLatin1String(".Error.") + outcome.refusal.kind, outcome.refusal.text);
    }
}

} // namespace Varnel
