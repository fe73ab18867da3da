// SPDX-License-Identifier: MIT
#include "modbusbench.h"

#include <cerrno>

#include <QDir>
#include <QFile>

#include <modbus.h>

namespace {

const QString scriptDirectory = "/usr/local/bin/"_s;
const QString busSocket = "/run/dbus/system_bus_socket"_s;

bool runShell(const QString& command)
{
    return Program::runTool({"sh"_s, "-c"_s, command});
}

} // namespace

bool ModbusBench::installScripts()
{
    return runShell("cd " VARNEL_SOURCE_DIR "/device/scripts && "
                    "cp --remove-destination varnel-common.sh varnel-modbus.sh mbserverstart.sh "
                    "mbserverstop.sh " VARNEL_PROGRAM_DIR "/mbserverupdate.sh "_s +
                    scriptDirectory);
}

bool ModbusBench::start(const QString& activation)
{
    // The device's own activation file, but for the program's place and options.
    const QString offer = " && sed 's|@CMAKE_INSTALL_FULL_BINDIR@\\(.*\\)|" VARNEL_PROGRAM_DIR
                          "\\1 %1|' " VARNEL_SOURCE_DIR "/device/dbus/org.varnel.ModbusServer1.service.in"
                          " > /run/dbus/services/org.varnel.ModbusServer1.service"_s;
    // /var/lock has the locks of serial ports.
    const QString prepare = "rm -rf /run/dbus && mkdir -p /run/dbus/services /var/lock"_s;
    daemon = std::make_unique<Program>("/usr/bin/dbus-daemon"_s);
    return runShell(activation.isNull() ? prepare : prepare + offer.arg(activation)) && installScripts() &&
           daemon->start({"--config-file=" VARNEL_SOURCE_DIR "/scripts/sandbox-bus.conf"_s, "--nofork"_s,
                          "--nopidfile"_s, "--nosyslog"_s}) &&
           awaitTrue([] { return QFile::exists(busSocket); });
}

bool ModbusBench::killServer()
{
    return runShell("kill -KILL $(pidof varnel-modbus-server)"_s);
}

ScriptRun ModbusBench::run(const QString& script, const QStringList& arguments)
{
    Program program(scriptDirectory + script);
    if (!program.start(arguments) || !program.awaitEnd()) {
        return {};
    }
    return {program.exitStatus(), program.log().lines()};
}

QString ModbusBench::writeInit(const QString& protocol, const QString& interface, const QString& tables)
{
    const QString text = R"({"cmd": "init", "delay": 500, "protocol": "%1", "%1": {%2}, "tables": [%3]})"_s;
    QDir().mkpath("/tmp/etc"_s);
    QFile file("/tmp/etc/mbserver_init.dbus"_s);
    const bool written =
        file.open(QIODevice::WriteOnly) && file.write(text.arg(protocol, interface, tables).toUtf8()) > 0;
    return written ? file.fileName() : QString();
}

QString ModbusBench::update(int address, const QVector<quint16>& words)
{
    QStringList values;
    for (const quint16 word : words) {
        values += QString::number(word);
    }
    return R"({"cmd":"setconfig","data":[{"address":%1,"values":[%2]}]})"_s.arg(
        QString::number(address), values.join(QLatin1Char(',')));
}

SerialLine::~SerialLine()
{
    cable.reset();
    QFile::remove(serverPort());
    QFile::remove(plcPort());
}

bool SerialLine::start()
{
    cable = std::make_unique<Program>("/usr/bin/socat"_s);
    const QString end = "pty,rawer,link="_s;
    return cable->start({end + serverPort(), end + plcPort()}) &&
           awaitTrue([] { return QFile::exists(serverPort()) && QFile::exists(plcPort()); });
}

ModbusClient::ModbusClient(_modbus* newContext)
    : context(newContext)
{
    modbus_set_response_timeout(context, patience.count() / 1000, 0);
}

ModbusClient::~ModbusClient()
{
    modbus_close(context);
    modbus_free(context);
}

std::unique_ptr<ModbusClient> ModbusClient::tcp(int port, const char* address)
{
    return std::unique_ptr<ModbusClient>(new ModbusClient(modbus_new_tcp(address, port)));
}

std::unique_ptr<ModbusClient> ModbusClient::rtu(const QString& device, int baud, int unit)
{
    std::unique_ptr<ModbusClient> client(
        new ModbusClient(modbus_new_rtu(device.toLocal8Bit().constData(), baud, 'N', 8, 1)));
    modbus_set_slave(client->context, unit);
    return client;
}

bool ModbusClient::note(int result)
{
    lastProblem = result < 0 ? QString::fromLocal8Bit(modbus_strerror(errno)) : QString();
    return result >= 0;
}

bool ModbusClient::connect()
{
    return note(modbus_connect(context));
}

template<typename Word, typename Function>
QVector<Word> ModbusClient::read(Function function, int address, int count)
{
    QVector<Word> words(count);
    return note(function(context, address, count, words.data())) ? words : QVector<Word>();
}

QVector<quint16> ModbusClient::holding(int address, int count)
{
    return read<quint16>(&modbus_read_registers, address, count);
}

QVector<quint16> ModbusClient::input(int address, int count)
{
    return read<quint16>(&modbus_read_input_registers, address, count);
}

QVector<quint8> ModbusClient::coils(int address, int count)
{
    return read<quint8>(&modbus_read_bits, address, count);
}

QVector<quint8> ModbusClient::discrete(int address, int count)
{
    return read<quint8>(&modbus_read_input_bits, address, count);
}

bool ModbusClient::write(int address, quint16 word)
{
    return note(modbus_write_register(context, address, word));
}
