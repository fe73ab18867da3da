// SPDX-License-Identifier: MIT
#include "modbusinterface.h"

#include <algorithm>
#include <tuple>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QtDebug>

#include <unistd.h>

#include "modbuscommand.h"
#include "modbusencoding.h"
#include "scriptrunner.h"
#include "settings.h"

namespace Varnel {

namespace {

Q_LOGGING_CATEGORY(lcModbus, "varnel.modbus", QtWarningMsg)

/// Limit, in registers, for one table: the number of Modbus addresses. A client cannot read beyond them.
constexpr int addressSpace = 65536;

/// Limit, in registers, for all tables of one update. The tables of a damaged mapping can overlap, each as
/// long as the address space, and must not exhaust the memory.
constexpr int updateSpace = 16 * addressSpace;

constexpr QLatin1String key(const char* name)
{
    return QLatin1String(name);
}

QString joinedPath(const QString& directory, const char* name)
{
    return QDir::cleanPath(directory + QDir::separator() + QLatin1String(name));
}

QString initFilePath(const QString& directory)
{
    return joinedPath(directory, "mbserver_init.dbus");
}

QString bridgeScript(const char* name)
{
    return joinedPath(Settings::getFilesScriptDir(), name);
}

} // namespace

bool operator==(const CiCoord_s& left, const CiCoord_s& right)
{
    return std::tie(left.ciClass, left.ciField, left.ciIndex, left.ciType) ==
           std::tie(right.ciClass, right.ciField, right.ciIndex, right.ciType);
}

uint qHash(const CiCoord_s& coord)
{
    return uint(coord.ciClass) ^ uint(coord.ciField) << 1 ^ uint(coord.ciIndex) << 2 ^
           uint(coord.ciType) << 3;
}

uint qHash(const CiCoord_s& coord, uint seed)
{
    return qHashBits(&coord, sizeof coord, seed ^ qHash(coord));
}

ModbusInterface::ModbusInterface(QObject* parent)
    : QObject(parent)
{
}

ModbusInterface::~ModbusInterface() = default;

int ModbusInterface::GetCiTypeIndex(const QString& type)
{
    return ciTypeLookup[type];
}

MbType_s ModbusInterface::GetTypeInfo(const QString& type)
{
    return ciTypeList[ciTypeLookup[type]];
}

AccessMode ModbusInterface::AccessModefromString(const QString& smode)
{
    static constexpr struct
    {
        const char* text;
        AccessMode mode;
    } modes[] = {{"r", ACCESS_RO}, {"w", ACCESS_WO}, {"rw", ACCESS_RW}};
    for (const auto& known : modes) {
        if (smode == QLatin1String(known.text)) {
            return known.mode;
        }
    }
    return ACCESS_NO;
}

QVector<int> ModbusInterface::CheckTableToUpdate(const QList<core_tmp>& coreupdate)
{
    QVector<int> result;
    QSet<int> known;
    for (const core_tmp& item : coreupdate) {
        const CiCoord_s coord{item.ci_class, item.ci_field, item.instance, item.ci_type};
        const auto lookup = ciLookup.constFind(coord);
        if (lookup == ciLookup.constEnd() || !registerList.contains(lookup->reg)) {
            continue;
        }
        SetRegisterValue(lookup->reg, coord, item.baData);
        for (const int address : lookup->tables) {
            if (!known.contains(address)) {
                known.insert(address);
                result.append(address);
            }
        }
    }
    return result;
}

bool ModbusInterface::SetRegisterValue(int regid, const CiCoord_s& coord, const QByteArray& qbData)
{
    registerList[regid].value = decodePayload(ciTypeList[coord.ciType].name, qbData);
    return true;
}

QVector<MbRawData_s> ModbusInterface::ComputeRawData(const QVector<int>& tableupdate)
{
    QVector<MbRawData_s> result;
    result.reserve(tableupdate.size());
    int room = updateSpace;
    for (const int address : tableupdate) {
        result.append({address, RenderTable(address, std::min(room, addressSpace))});
        room -= result.last().values.size();
    }
    return result;
}

/// The words of the table at `address`, at most `limit` of them.
QVector<quint16> ModbusInterface::RenderTable(int address, int limit)
{
    const QVector<int> ids = tableList[address].registers;
    QVector<quint16> words;
    words.reserve(std::min(ids.size() * 2, limit));
    QHash<int, MbEncoding_s> encodings;
    auto next = registerList.begin();
    for (const int id : ids) {
        if (id <= 0) {
            const qint64 gap = -qint64(id);
            words.resize(int(std::min(words.size() + gap, qint64(limit) + 1)));
        } else {
            if (next == registerList.end() || next.key() != id) {
                next = registerList.find(id);
            }
            if (next == registerList.end()) {
                next = registerList.insert(id, {});
            }
            auto encoding = encodings.constFind(next->mbtype);
            if (encoding == encodings.constEnd()) {
                const MbType_s& type = ciTypeList[next->mbtype];
                encodings.insert(next->mbtype, encodingOf(type.name, type.byteSize, type.mbSize));
                encoding = encodings.constFind(next->mbtype);
            }
            appendWords(&words, next->value, *encoding);
            ++next;
        }
        if (words.size() > limit) {
            ReportCut(address);
            words.resize(limit);
        }
    }
    return words;
}

void ModbusInterface::ReportCut(int address)
{
    if (!cutTables.contains(address)) {
        cutTables.insert(address);
        qCDebug(lcModbus) << "Table at address" << address << "does not fit the Modbus address space, cut";
    }
}

/// The number of registers of the table in the server. Here 0 is a register id, unlike in RenderTable().
qint64 ModbusInterface::TableLength(const MbTable_s& table)
{
    qint64 length = 0;
    for (const int id : table.registers) {
        length += id < 0 ? -qint64(id) : ciTypeList[registerList[id].mbtype].mbSize;
    }
    return length;
}

bool ModbusInterface::GenerateDbusInit(const QString& initpath)
{
    QJsonObject root{{key("cmd"), key("init")}, {key("delay"), 500}};
    const QString mode = Settings::getModbusMode().toLower();
    QJsonObject interface;
    if (!serverInterface(mode, Settings::getModbusIntf(), &interface)) {
        return false;
    }
    root.insert(key("protocol"), mode);
    root.insert(mode, interface);
    QJsonArray tables;
    for (auto table = tableList.constBegin(); table != tableList.constEnd(); ++table) {
        // The server serves every table read-only, whatever its mode in the mapping.
        tables.append(QJsonObject{
            {key("address"), table.key()}, {key("mode"), key("r")}, {key("length"), TableLength(*table)}});
    }
    root.insert(key("tables"), tables);
    if (!QDir(initpath).exists()) {
        QDir().mkpath(initpath);
    }
    QFile file(initFilePath(initpath));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(QJsonDocument(root).toJson()) < 0 || !file.flush()) {
        // The server is started in any case and reports a bad file. This line gives the cause, such as a full
        // disk.
        qCWarning(lcModbus) << "Cannot write" << file.fileName() << ":" << file.errorString();
    }
    return true;
}

bool ModbusInterface::DbusStartMonitor(const QString& initfilepath)
{
    const QString script = bridgeScript("mbserverstart.sh");
    qDebug() << "Start modbus monitor";
    const QStringList arguments{initFilePath(initfilepath)};
    qDebug() << script;
    for (const QString& argument : arguments) {
        qDebug() << argument;
    }
    qDebug() << "";
    std::ignore = runScriptOrLog(script, arguments); // the server logs its own failures
    return true;
}

bool ModbusInterface::DbusStopMonitor()
{
    const QString script = bridgeScript("mbserverstop.sh");
    qDebug() << "Stop modbus monitor";
    std::ignore = runScriptOrLog(script, {}); // it is no failure if no server runs
    return true;
}

QString ModbusInterface::GenerateDbusUpdateQuery(const QVector<MbRawData_s>& rawdata)
{
    return updateCommand(rawdata);
}

bool ModbusInterface::DbusUpdateRegisters(const QString& data)
{
    const ScriptResult result = runScript(bridgeScript("mbserverupdate.sh"), {data});
    // The kernel's limit for one argument: 32 pages, with the final NUL.
    const long limit = 32 * ::sysconf(_SC_PAGESIZE) - 1;
    const bool tooLong = result == ScriptResult::FailedToStart && data.toLocal8Bit().size() > limit;
    if (tooLong && !commandTooLong) {
        qCWarning(lcModbus) << "Update command of" << data.size() << "octets dropped, one argument may have"
                            << limit << ": shorten the tables of the mapping";
    }
    commandTooLong = tooLong;
    return true;
}

} // namespace Varnel
