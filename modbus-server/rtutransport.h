// SPDX-License-Identifier: MIT
#pragma once

#include <QSerialPort>
#include <QTimer>

#include "rtudecoder.h"
#include "serverconfig.h"
#include "transport.h"

namespace Varnel {

/// Modbus RTU on one serial line, as one of possibly several devices on it. Ignores frames for other devices
/// and broadcasts (which only write).
class RtuTransport : public Transport
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RtuTransport)

public:
    RtuTransport(const RtuEndpoint& endpoint, AnswerFunction answer, QObject* parent = nullptr);

    Outcome<> open() override;
    [[nodiscard]] int clientCount() const override { return serial.isOpen() ? 1 : 0; }

private:
    void receive();
    void lineSilent();
    void reply(const QByteArray& pdu);
    void portError(QSerialPort::SerialPortError error);

    RtuEndpoint endpoint;
    AnswerFunction answer;
    QSerialPort serial;
    RtuDecoder decoder;
    QTimer silence;
};

} // namespace Varnel
