// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <variant>
#include <vector>

#include <QByteArray>
#include <QHostAddress>
#include <QSerialPort>
#include <QString>

#include "outcome.h"

namespace Varnel {

/// The interface for Modbus/TCP.
struct TcpEndpoint
{
    QHostAddress listen;
    quint16 port = 0;
    /// Highest number of clients connected at the same time.
    int clients = 0;
};

/// The interface for Modbus RTU. RTU needs all eight bits of a character, so there is no setting for data
/// bits.
struct RtuEndpoint
{
    /// Our address on the line, 1 to 247.
    quint8 deviceId = 0;
    /// Serial device, an absolute path.
    QString port;
    qint32 baud = 0;
    QSerialPort::Parity parity = QSerialPort::NoParity;
    QSerialPort::StopBits stopBits = QSerialPort::OneStop;
};

/// One block of registers that clients can read.
struct RegisterRange
{
    quint16 address = 0;
    /// Number of 16-bit registers; address + length stays within the address space.
    int length = 0;
};

/// The contents of an init file.
struct ServerConfig
{
    std::variant<TcpEndpoint, RtuEndpoint> endpoint;
    std::vector<RegisterRange> tables;
    /// Pause between two attempts to open an interface that cannot be opened.
    std::chrono::milliseconds retryInterval{0};
};

/// Limit, in bytes, for an init file.
constexpr int maxInitSize = 4 * 1024 * 1024;

/// Parses the text of an init file. Pure: opens nothing, logs nothing, accepts any bytes. Refuses as
/// "BadInit" (with the member that is wrong) or "UnknownCommand".
[[nodiscard]] Outcome<ServerConfig> parseInit(const QByteArray& text);

/// The endpoint in words for messages: "tcp 0.0.0.0:502", "rtu /dev/ttyS1 19200 8N1 id 1".
[[nodiscard]] QString describe(const ServerConfig& config);

} // namespace Varnel
