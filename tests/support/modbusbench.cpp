// SPDX-License-Identifier: MIT
#include "modbusbench.h"

#include <cerrno>
#include <csignal>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <modbus.h>

namespace {

const QString sourceDir = QStringLiteral(VARNEL_SOURCE_DIR);
const QString scriptDir = QStringLiteral("/usr/local/bin");
const QString busSocket = QStringLiteral("/run/dbus/system_bus_socket");
const QString serviceDir = QStringLiteral("/run/dbus/services");
const char* const deviceScripts[] = {
    VARNEL_SOURCE_DIR "/device/scripts/varnel-common.sh",
    VARNEL_SOURCE_DIR "/device/scripts/varnel-modbus.sh",
    VARNEL_SOURCE_DIR "/device/scripts/mbserverstart.sh",
    VARNEL_SOURCE_DIR "/device/scripts/mbserverstop.sh",
    VARNEL_PROGRAM_DIR "/mbserverupdate.sh",
};

bool writeFile(const QString& path, const QString& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0;
}

} // namespace

bool ModbusBench::installScripts()
{
    for (const char* script : deviceScripts) {
        const QFileInfo source(QString::fromLatin1(script));
        const QString target = scriptDir + QLatin1Char('/') + source.fileName();
        QFile::remove(target);
        if (!QFile::copy(source.filePath(), target)) {
            return false;
        }
    }
    return true;
}

/// Lets the bus start the server: with the device's own activation file, but for the program's place and
/// options.
bool ModbusBench::offerService(const QString& activation)
{
    QDir(serviceDir).removeRecursively();
    if (!QDir().mkpath(serviceDir)) {
        return false;
    }
    if (activation.isNull()) {
        return true;
    }
    QFile service(sourceDir + QStringLiteral("/device/dbus/org.varnel.ModbusServer1.service.in"));
    if (!service.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QString program = QStringLiteral(VARNEL_PROGRAM_DIR "/varnel-modbus-server");
    const QString text = QString::fromUtf8(service.readAll())
                             .replace(QStringLiteral("@CMAKE_INSTALL_FULL_BINDIR@/varnel-modbus-server"),
                                      program + QLatin1Char(' ') + activation);
    return writeFile(serviceDir + QStringLiteral("/org.varnel.ModbusServer1.service"), text);
}

bool ModbusBench::start(const QString& activation)
{
    // Locks of serial ports, which a device has.
    if (!QDir().mkpath(QStringLiteral("/var/lock")) || !installScripts() || !offerService(activation)) {
        return false;
    }
    QFile::remove(busSocket);
    daemon = std::make_unique<Program>(QStringLiteral("/usr/bin/dbus-daemon"));
    return daemon->start(
               {QStringLiteral("--config-file=") + sourceDir + QStringLiteral("/scripts/sandbox-bus.conf"),
                QStringLiteral("--nofork"), QStringLiteral("--nopidfile"), QStringLiteral("--nosyslog")}) &&
           QTest::qWaitFor([] { return QFile::exists(busSocket); }, int(patience.count()));
}

bool ModbusBench::killServer()
{
    Program pidof(QStringLiteral("/usr/bin/pidof"));
    if (!pidof.start({QStringLiteral("varnel-modbus-server")}) || !pidof.awaitEnd()) {
        return false;
    }
    const pid_t pid = pidof.output().trimmed().toInt();
    return pid > 0 && ::kill(pid, SIGKILL) == 0;
}

ScriptRun ModbusBench::run(const QString& script, const QStringList& arguments)
{
    Program program(scriptDir + QLatin1Char('/') + script);
    if (!program.start(arguments) || !program.awaitEnd()) {
        return {};
    }
    return {program.exitStatus(), program.log().lines()};
}

QString ModbusBench::writeInit(const QString& protocol, const QString& interface, const QString& tables)
{
    const QJsonObject root{
        {QStringLiteral("cmd"), QStringLiteral("init")},
        {QStringLiteral("delay"), 500},
        {QStringLiteral("protocol"), protocol},
        {protocol, QJsonDocument::fromJson('{' + interface.toUtf8() + '}').object()},
        {QStringLiteral("tables"), QJsonDocument::fromJson('[' + tables.toUtf8() + ']').array()},
    };
    const QString path = QStringLiteral("/tmp/etc/mbserver_init.dbus");
    const bool written =
        QDir().mkpath(QStringLiteral("/tmp/etc")) &&
        writeFile(path, QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented)));
    return written ? path : QString();
}

QString ModbusBench::update(int address, const QVector<quint16>& words)
{
    QJsonArray values;
    for (const quint16 word : words) {
        values.append(word);
    }
    const QJsonObject run{{QStringLiteral("address"), address}, {QStringLiteral("values"), values}};
    const QJsonObject root{{QStringLiteral("cmd"), QStringLiteral("setconfig")},
                           {QStringLiteral("data"), QJsonArray{run}}};
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Compact));
}

SerialLine::~SerialLine()
{
    cable.reset();
    QFile::remove(serverPort());
    QFile::remove(plcPort());
}

bool SerialLine::start()
{
    cable = std::make_unique<Program>(QStringLiteral("/usr/bin/socat"));
    const QString end = QStringLiteral("pty,rawer,link=");
    return cable->start({end + serverPort(), end + plcPort()}) &&
           QTest::qWaitFor([] { return QFile::exists(serverPort()) && QFile::exists(plcPort()); },
                           int(patience.count()));
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

bool ModbusClient::writeMany(int address, const QVector<quint16>& words)
{
    return note(modbus_write_registers(context, address, words.size(), words.constData()));
}
