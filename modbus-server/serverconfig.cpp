// SPDX-License-Identifier: MIT
#include "serverconfig.h"

#include "jsoncommand.h"

namespace Varnel {

namespace {

const QString badInit = QStringLiteral("BadInit");

constexpr int defaultDelayMs = 500;
constexpr int minDelayMs = 100; // a shorter pause would waste CPU time
constexpr int maxDelayMs = 60 * 60 * 1000;
constexpr int maxClients = 1000;
constexpr int highestDeviceId = 247; // 248 to 255 are reserved by the Modbus serial line guide
constexpr int maxBaud = 4000000;

struct ParityLetter
{
    char letter;
    QSerialPort::Parity parity;
};

constexpr ParityLetter parities[] = {
    {'N', QSerialPort::NoParity}, {'E', QSerialPort::EvenParity}, {'O', QSerialPort::OddParity}};

Outcome<TcpEndpoint> parseTcp(const QJsonObject& object)
{
    JsonMembers members(object, QStringLiteral("tcp"), badInit);
    TcpEndpoint endpoint;
    const QString listen = members.string(QStringLiteral("listen"));
    if (!endpoint.listen.setAddress(listen)) {
        members.complain(QStringLiteral("listen"), quoted(listen) + QLatin1String(" is not an IP address"));
    }
    endpoint.port = static_cast<quint16>(members.integer(QStringLiteral("port"), 1, addressSpace - 1));
    endpoint.clients = members.integer(QStringLiteral("clients"), 1, maxClients);
    if (!members.ok()) {
        return members.refusal();
    }
    return endpoint;
}

/// Reads a character format such as "8N1" into `endpoint`. False when RTU cannot use it.
bool parseFormat(const QString& format, RtuEndpoint& endpoint)
{
    const QString upper = format.toUpper();
    if (upper.size() != 3 || upper.at(0) != QLatin1Char('8')) {
        return false;
    }
    if (upper.at(2) != QLatin1Char('1') && upper.at(2) != QLatin1Char('2')) {
        return false;
    }
    endpoint.stopBits = upper.at(2) == QLatin1Char('1') ? QSerialPort::OneStop : QSerialPort::TwoStop;
    for (const ParityLetter& entry : parities) {
        if (upper.at(1) == QLatin1Char(entry.letter)) {
            endpoint.parity = entry.parity;
            return true;
        }
    }
    return false;
}

Outcome<RtuEndpoint> parseRtu(const QJsonObject& object)
{
    JsonMembers members(object, QStringLiteral("rtu"), badInit);
    RtuEndpoint endpoint;
    endpoint.deviceId = static_cast<quint8>(members.integer(QStringLiteral("devid"), 1, highestDeviceId));
    endpoint.port = members.string(QStringLiteral("port"));
    if (!endpoint.port.startsWith(QLatin1Char('/')) || endpoint.port.contains(QChar(QChar::Null))) {
        members.complain(QStringLiteral("port"),
                         quoted(endpoint.port) + QLatin1String(" is not a device path"));
    }
    endpoint.baud = members.integer(QStringLiteral("baud"), 1, maxBaud);
    const QString format = members.string(QStringLiteral("mode"));
    if (!parseFormat(format, endpoint)) {
        members.complain(QStringLiteral("mode"),
                         quoted(format) + QLatin1String(" is none of 8N1, 8E1, 8O1, 8N2, 8E2, 8O2"));
    }
    if (!members.ok()) {
        return members.refusal();
    }
    return endpoint;
}

/// The panel writes every table as read-only, and this server can do nothing else, so another mode is a
/// mistake that must be reported.
Outcome<RegisterRange> parseTable(const QJsonValue& value, int index)
{
    const QString path = QStringLiteral("tables[%1]").arg(index);
    if (!value.isObject()) {
        return Refusal{badInit, path + QLatin1String(": must be an object")};
    }
    JsonMembers members(value.toObject(), path, badInit);
    RegisterRange range;
    range.address = static_cast<quint16>(members.integer(QStringLiteral("address"), 0, addressSpace - 1));
    range.length = members.integer(QStringLiteral("length"), 0, addressSpace);
    if (range.address + range.length > addressSpace) {
        members.complain(
            QStringLiteral("length"),
            QStringLiteral("%1 registers from address %2 pass 65535").arg(range.length).arg(range.address));
    }
    if (members.string(QStringLiteral("mode")) != QLatin1String("r")) {
        members.complain(QStringLiteral("mode"), QStringLiteral("only 'r' is served"));
    }
    if (!members.ok()) {
        return members.refusal();
    }
    return range;
}

Outcome<std::vector<RegisterRange>> parseTables(const QJsonArray& array)
{
    std::vector<RegisterRange> tables;
    tables.reserve(static_cast<size_t>(array.size()));
    for (int index = 0; index < array.size(); ++index) {
        const Outcome<RegisterRange> table = parseTable(array.at(index), index);
        if (!table) {
            return table.refusal;
        }
        tables.push_back(*table.value);
    }
    return tables;
}

/// Turns a parsed endpoint of either kind into the configuration's variant.
template<typename Endpoint>
Outcome<> take(const Outcome<Endpoint>& endpoint, ServerConfig& config)
{
    if (!endpoint) {
        return endpoint.refusal;
    }
    config.endpoint = *endpoint.value;
    return {};
}

struct Describer
{
    QString operator()(const TcpEndpoint& tcp) const
    {
        return QStringLiteral("tcp %1:%2").arg(tcp.listen.toString()).arg(tcp.port);
    }
    QString operator()(const RtuEndpoint& rtu) const
    {
        const char* parity = rtu.parity == QSerialPort::NoParity     ? "N"
                             : rtu.parity == QSerialPort::EvenParity ? "E"
                                                                     : "O";
        return QStringLiteral("rtu %1 %2 8%3%4 id %5")
            .arg(rtu.port, QString::number(rtu.baud), QLatin1String(parity), QString::number(rtu.stopBits),
                 QString::number(rtu.deviceId));
    }
};

} // namespace

Outcome<ServerConfig> parseInit(const QByteArray& text)
{
    const Outcome<QJsonObject> object = parseCommand(text, QStringLiteral("init"), badInit, maxInitSize);
    if (!object) {
        return object.refusal;
    }
    JsonMembers members(*object.value, QString(), badInit);
    ServerConfig config;
    config.retryInterval = std::chrono::milliseconds(
        qMax(minDelayMs, members.integerOr(QStringLiteral("delay"), 0, maxDelayMs, defaultDelayMs)));
    const QString protocol = members.string(QStringLiteral("protocol"));
    if (protocol != QLatin1String("tcp") && protocol != QLatin1String("rtu")) {
        members.complain(QStringLiteral("protocol"),
                         quoted(protocol) + QLatin1String(" is neither 'tcp' nor 'rtu'"));
        return members.refusal();
    }
    const QJsonObject interface = members.subobject(protocol);
    const QJsonArray tables = members.array(QStringLiteral("tables"));
    if (!members.ok()) {
        return members.refusal();
    }
    const Outcome<> taken = protocol == QLatin1String("tcp") ? take(parseTcp(interface), config)
                                                             : take(parseRtu(interface), config);
    if (!taken) {
        return taken.refusal;
    }
    Outcome<std::vector<RegisterRange>> ranges = parseTables(tables);
    if (!ranges) {
        return ranges.refusal;
    }
    config.tables = *ranges.value;
    return config;
}

QString describe(const ServerConfig& config)
{
    return std::visit(Describer(), config.endpoint);
}

} // namespace Varnel
