// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QVector>

#include "program.h"

struct _modbus;

/// A script's exit status and messages.
struct ScriptRun
{
    int status = -1;
    QStringList messages;
};

/// The sandbox's system bus, with the policy that the device has, and the device's own scripts in the panel's
/// script directory. The bus ends with the object.
class ModbusBench
{
    Q_DISABLE_COPY_MOVE(ModbusBench)

public:
    ModbusBench() = default;

    /// Starts the bus and installs the scripts; false when that fails. With `activation`, D-Bus starts the
    /// server when a script calls it, with these options, and the server's log is bus().log().
    [[nodiscard]] bool start(const QString& activation = QString());

    Program& bus() { return *daemon; }

    /// Kills the server that D-Bus started, without giving it a chance to end in order. False when there is
    /// none.
    [[nodiscard]] static bool killServer();

    /// Puts the device's scripts in place.
    [[nodiscard]] static bool installScripts();

    /// Runs a script of the device to its end.
    static ScriptRun run(const QString& script, const QStringList& arguments);

    /// Writes an init file with the panel's members and returns its path. `interface` is the object behind
    /// the protocol's name, without braces.
    static QString writeInit(const QString& protocol, const QString& interface, const QString& tables);

    /// The update command that puts `words` at `address`, as the panel writes it.
    static QString update(int address, const QVector<quint16>& words);

private:
    std::unique_ptr<Program> daemon;
};

/// Two serial ports joined by a cable, until the object goes.
class SerialLine
{
    Q_DISABLE_COPY_MOVE(SerialLine)

public:
    SerialLine() = default;
    ~SerialLine();

    static QString serverPort() { return "/tmp/server-port"_s; }
    static QString plcPort() { return "/tmp/plc-port"_s; }

    /// Plugs the cable in; false when that fails.
    [[nodiscard]] bool start();

private:
    std::unique_ptr<Program> cable;
};

/// A Modbus client of another make (libmodbus). Calls wait for the answer.
class ModbusClient
{
    Q_DISABLE_COPY_MOVE(ModbusClient)

public:
    static std::unique_ptr<ModbusClient> tcp(int port, const char* address = "127.0.0.1");
    static std::unique_ptr<ModbusClient> rtu(const QString& device, int baud, int unit);
    ~ModbusClient();

    /// Connects; false, with the reason in problem(), when that fails.
    [[nodiscard]] bool connect();
    /// Holding registers (function code 3) and input registers (4). Empty on failure.
    QVector<quint16> holding(int address, int count);
    QVector<quint16> input(int address, int count);
    /// Coils (1) and discrete inputs (2), one element a bit.
    QVector<quint8> coils(int address, int count);
    QVector<quint8> discrete(int address, int count);
    bool write(int address, quint16 word);

    /// The error of the last call: "Illegal data address" and so on; empty when there was none.
    QString problem() const { return lastProblem; }

private:
    explicit ModbusClient(_modbus* context);

    template<typename Word, typename Function>
    QVector<Word> read(Function function, int address, int count);
    bool note(int result);

    _modbus* context;
    QString lastProblem;
};
