// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusContext>
#include <QObject>

#include "outcome.h"

namespace Varnel {

class Service;

/// The service as the device scripts see it on D-Bus: object /org/varnel/ModbusServer1, interface
/// org.varnel.ModbusServer1. A refused command is answered with the D-Bus error
/// org.varnel.ModbusServer1.Error.<kind> and one line of text.
class BusInterface : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(BusInterface)
    Q_CLASSINFO("D-Bus Interface", "org.varnel.ModbusServer1")
    Q_PROPERTY(QString State READ state)
    Q_PROPERTY(QString Endpoint READ endpoint)
    Q_PROPERTY(int Clients READ clients)
    Q_PROPERTY(int Registers READ registers)
    Q_PROPERTY(qulonglong Updates READ updates)

public:
    static QString serviceName();
    static QString objectPath();

    /// `service` must outlive this object.
    explicit BusInterface(Service& service, QObject* parent = nullptr);

    [[nodiscard]] QString state() const;
    [[nodiscard]] QString endpoint() const;
    [[nodiscard]] int clients() const;
    [[nodiscard]] int registers() const;
    [[nodiscard]] qulonglong updates() const;

public slots:
    // The names are those on the bus.
    Q_SCRIPTABLE void Start(const QString& initFile);
    Q_SCRIPTABLE void Stop();
    Q_SCRIPTABLE void Update(const QString& command);

    /// Ends the program with a failure, so that the service manager starts it again when the bus is back.
    void busLost();

private:
    void answer(const Outcome<>& outcome);

    Service& service;
};

} // namespace Varnel
