// SPDX-License-Identifier: MIT
// A mapping file and Core items through the Modbus bridge: loading, lookup, rendering, the server's init file
// and update command, each checked against a simple second way or against the server's own parser.
#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtEndian>

#include "files.h"
#include "harness.h"
#include "modbusinterface.h"
#include "registerstore.h"
#include "registerupdate.h"
#include "scopedsetting.h"
#include "serverconfig.h"

using namespace Varnel;
using fuzz::require;
using fuzz::requireSame;

namespace {

constexpr int addressSpaceSize = 65536;

struct Stage
{
    QTemporaryDir directory;
    QString map = directory.filePath(QStringLiteral("modbus.map"));
    QString init = directory.filePath(QStringLiteral("mbserver_init.dbus"));
    ScopedSetting<QString> scripts{"Files", "ScriptDir", directory.filePath(QStringLiteral("no scripts"))};
    RegisterStore store;
};

Stage* stage = nullptr;

/// The items behind the mapping's text and a NUL, at most 200: the number of a register, or from 240 on a
/// coordinate in six octets; then the value with its length in one octet.
QList<core_tmp> readItems(fuzz::Input* input, const ModbusInterface& bridge)
{
    const QList<MbRegister_s> registers = bridge.GetRegisterList().values();
    QList<core_tmp> items;
    while (!input->isEmpty() && items.size() < 200) {
        const quint8 number = input->u8();
        core_tmp item;
        if (number < 240 && !registers.isEmpty()) {
            const CiCoord_s& ci = registers.at(number % registers.size()).ci;
            item = {quint16(ci.ciClass), quint16(ci.ciField), quint8(ci.ciIndex), quint8(ci.ciType), 0, {}};
        } else {
            item.ci_class = input->u16();
            item.ci_field = input->u16();
            item.instance = input->u8();
            item.ci_type = input->u8();
        }
        item.baData = input->take(input->u8());
        item.datalen = static_cast<quint16>(item.baData.size());
        items.append(item);
    }
    return items;
}

bool sameModel(const ModbusInterface& one, const ModbusInterface& other)
{
    const auto sameRegister = [](const MbRegister_s& a, const MbRegister_s& b) {
        return a.ci == b.ci && a.name == b.name && a.mbtype == b.mbtype && a.value == b.value;
    };
    const auto sameTable = [](const MbTable_s& a, const MbTable_s& b) {
        return a.name == b.name && a.mode == b.mode && a.registers == b.registers;
    };
    const auto& registers = one.GetRegisterList();
    const auto& tables = one.GetTableList();
    return registers.keys() == other.GetRegisterList().keys() &&
           tables.keys() == other.GetTableList().keys() &&
           std::equal(registers.cbegin(), registers.cend(), other.GetRegisterList().cbegin(), sameRegister) &&
           std::equal(tables.cbegin(), tables.cend(), other.GetTableList().cbegin(), sameTable) &&
           one.GetCiTypeLookup() == other.GetCiTypeLookup() &&
           one.GetCiTypeList().keys() == other.GetCiTypeList().keys() &&
           one.GetCiLookup().size() == other.GetCiLookup().size();
}

/// Register and tables of a coordinate, by looking through all of them.
MbLookup_s searched(const ModbusInterface& bridge, const CiCoord_s& coord)
{
    MbLookup_s result;
    for (auto table = bridge.GetTableList().cbegin(); table != bridge.GetTableList().cend(); ++table) {
        for (const int id : table->registers) {
            const auto reg = bridge.GetRegisterList().constFind(id);
            if (reg == bridge.GetRegisterList().cend() || !(reg->ci == coord)) {
                continue;
            }
            if (result.tables.isEmpty()) {
                result.reg = id;
            }
            if (!result.tables.contains(table.key())) {
                result.tables.append(table.key());
            }
        }
    }
    return result;
}

void compareLookup(const ModbusInterface& bridge)
{
    const auto& index = bridge.GetCiLookup();
    for (auto entry = index.cbegin(); entry != index.cend(); ++entry) {
        const MbLookup_s wanted = searched(bridge, entry.key());
        require(entry->reg == wanted.reg && entry->tables == wanted.tables,
                "the index finds what a search finds");
    }
    for (const MbRegister_s& reg : bridge.GetRegisterList()) {
        require(index.contains(reg.ci) != searched(bridge, reg.ci).tables.isEmpty(),
                "every tabled register is found");
    }
}

/// The words of a register, with shifts and masks spelt out by the type's name.
QVector<quint16> wordsOf(const QVariant& value, const QString& type)
{
    const auto low = static_cast<quint32>(value.toLongLong());
    if (type == QLatin1String("bool")) {
        return {quint16(value.toBool())};
    }
    if (type == QLatin1String("uint8") || type == QLatin1String("int8")) {
        return {quint16((type[0] == QLatin1Char('u') ? quint32(value.toULongLong()) : low) % 256)};
    }
    if (type == QLatin1String("uint16") || type == QLatin1String("int16")) {
        return {quint16((type[0] == QLatin1Char('u') ? quint32(value.toULongLong()) : low) % 65536)};
    }
    if (type == QLatin1String("uint32") || type == QLatin1String("int32")) {
        const quint32 all = type[0] == QLatin1Char('u') ? quint32(value.toULongLong()) : low;
        return {quint16(all / 65536), quint16(all % 65536)};
    }
    if (type == QLatin1String("float")) {
        const float number = value.toFloat();
        const QByteArray octets(reinterpret_cast<const char*>(&number), sizeof number);
        return {qFromLittleEndian<quint16>(octets.constData() + 2),
                qFromLittleEndian<quint16>(octets.constData())};
    }
    return {};
}

/// A table's words, appended one register after the other, up to the end of the address space.
QVector<quint16> rendered(const ModbusInterface& bridge, int address)
{
    QVector<quint16> words;
    for (const int id : bridge.GetTableList().value(address).registers) {
        if (id <= 0) {
            words.resize(int(qMin<qint64>(words.size() - qint64(id), addressSpaceSize)));
        } else {
            const MbRegister_s reg = bridge.GetRegisterList().value(id);
            words += wordsOf(reg.value, bridge.GetCiTypeList().value(reg.mbtype).name);
        }
        words.resize(qMin(words.size(), addressSpaceSize));
    }
    return words;
}

bool isInside(qint64 address, qint64 length)
{
    return address >= 0 && address < addressSpaceSize && length >= 0 && address + length <= addressSpaceSize;
}

/// The update command is the JSON writer's, and the server takes it exactly when its addresses exist.
void compareCommand(const QVector<MbRawData_s>& tables, const QString& command)
{
    QJsonArray data;
    bool inside = true;
    for (const MbRawData_s& table : tables) {
        QJsonArray values;
        for (const quint16 word : table.values) {
            values.append(int(word));
        }
        data.append(
            QJsonObject{{QStringLiteral("address"), table.baseaddr}, {QStringLiteral("values"), values}});
        inside = inside && isInside(table.baseaddr, table.values.size());
    }
    const QJsonObject root{{QStringLiteral("cmd"), QStringLiteral("setconfig")},
                           {QStringLiteral("data"), data}};
    requireSame(command, QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Compact)),
                "the update command is what the JSON writer gives");
    const QByteArray octets = command.toUtf8();
    const Outcome<RegisterUpdate> parsed = parseUpdate(octets);
    require(bool(parsed) == (inside && octets.size() <= maxUpdateSize),
            "the server takes every update that fits");
    for (int i = 0; parsed && i < tables.size(); ++i) {
        const RegisterRun& run = (*parsed.value)[size_t(i)];
        require(run.address == tables[i].baseaddr &&
                    QVector<quint16>(run.words.cbegin(), run.words.cend()) == tables[i].values,
                "the server reads the words that were rendered");
    }
}

/// The server's configuration from the init file; nothing if it refuses the file.
std::optional<ServerConfig> serverConfig(ModbusInterface* bridge)
{
    require(bridge->GenerateDbusInit(stage->directory.path()), "the default interface is usable");
    const QByteArray text = contentOf(stage->init);
    const QJsonArray tables =
        QJsonDocument::fromJson(text).object().value(QStringLiteral("tables")).toArray();
    require(tables.size() == bridge->GetTableList().size(), "the init file names every table");
    bool inside = true;
    for (const QJsonValue& table : tables) {
        const double length = table[QStringLiteral("length")].toDouble();
        inside = inside && isInside(table[QStringLiteral("address")].toInt(), qint64(qMin(length, 1e9)));
    }
    const Outcome<ServerConfig> parsed = parseInit(text);
    require(bool(parsed) == (inside && text.size() <= maxInitSize),
            "the server takes every init file that fits");
    return parsed.value;
}

/// One frame's items: which tables change, and their words. Returns the command.
QString update(ModbusInterface* bridge, const QList<core_tmp>& items,
               const std::optional<ServerConfig>& config)
{
    QVector<int> wanted;
    for (const core_tmp& item : items) {
        const CiCoord_s coord{item.ci_class, item.ci_field, item.instance, item.ci_type};
        for (const int address : bridge->GetCiLookup().value(coord).tables) {
            if (!wanted.contains(address)) {
                wanted.append(address);
            }
        }
    }
    const QVector<int> tables = bridge->CheckTableToUpdate(items);
    require(tables == wanted, "the tables of the items, in order of first need");
    const QVector<MbRawData_s> raw = bridge->ComputeRawData(tables);
    require(raw.size() == tables.size(), "one run for each table");
    qint64 sum = 0;
    for (const MbRawData_s& table : raw) {
        sum += table.values.size();
        require(table.values.size() <= addressSpaceSize, "no table is longer than the address space");
    }
    for (int i = 0; i < raw.size() && sum < addressSpaceSize; ++i) {
        require(raw[i].baseaddr == tables[i] && raw[i].values == rendered(*bridge, tables[i]),
                "the words of a table");
    }
    QString command = ModbusInterface::GenerateDbusUpdateQuery(raw);
    compareCommand(raw, command);
    if (config && sum < addressSpaceSize) {
        const Outcome<RegisterUpdate> parsed = parseUpdate(command.toUtf8());
        require(bool(parsed) && bool(stage->store.publish(*parsed.value, {})),
                "what is rendered has its place in the server's tables");
    }
    require(ModbusInterface::GenerateDbusUpdateQuery(
                bridge->ComputeRawData(bridge->CheckTableToUpdate(items))) == command,
            "the same items again give the same command");
    require(bridge->DbusUpdateRegisters(command), "a missing script is no failure");
    return command;
}

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter)
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzz::QuietLog::install();
    new QCoreApplication(*argc, *argv); // lives as long as the process
    stage = new Stage;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::QuietLog::clear();
    fuzz::Input input(data, size);
    fuzz::writeFile(stage->map, input.takeUntil(QByteArray(1, '\0')));
    ModbusInterface bridge;
    ModbusInterface other;
    const bool loaded = bridge.LoadConfig(stage->map);
    require(other.LoadConfig(stage->map) == loaded && sameModel(bridge, other),
            "the same file gives the same model");
    require(other.LoadConfig(stage->map) == loaded && sameModel(bridge, other),
            "a second load changes nothing");
    compareLookup(bridge);
    const std::optional<ServerConfig> config = serverConfig(&bridge);
    if (config) {
        stage->store.configure(config->tables);
    }
    const QList<core_tmp> items = readItems(&input, bridge);
    const int half = items.size() / 2;
    const QVector<MbRawData_s> raw = other.ComputeRawData(other.CheckTableToUpdate(items.mid(0, half)));
    requireSame(update(&bridge, items.mid(0, half), config), ModbusInterface::GenerateDbusUpdateQuery(raw),
                "writing the init file changes nothing in the updates");
    update(&bridge, items.mid(half), config);
    return 0;
}
