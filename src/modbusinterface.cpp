// SPDX-License-Identifier: MIT
#include "modbusinterface.h"

#include <algorithm>
#include <optional>
#include <tuple>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>
#include <QLoggingCategory>
#include <QtDebug>

#include <unistd.h>

#include "jsonlogline.h"
#include "modbuscommand.h"
#include "modbusencoding.h"
#include "scriptrunner.h"
#include "settings.h"

namespace Varnel {

namespace {

Q_LOGGING_CATEGORY(lcModbus, "varnel.modbus", QtWarningMsg)

/// Registers that a Modbus address can name. Nothing behind them can be read, so no table is made longer,
/// whatever gaps its mapping asks for.
constexpr int addressSpace = 65536;

/// Registers rendered for one update, all tables together. Overlapping tables may repeat the address space; a
/// damaged mapping must not fill the memory with it.
constexpr int updateSpace = 16 * addressSpace;

constexpr QLatin1String key(const char* name)
{
    return QLatin1String(name);
}

/// The content of the file at `path`; nothing when it cannot be opened, which is no failure by itself.
std::optional<QByteArray> readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? std::optional(file.readAll()) : std::nullopt;
}

/// The numbers of classes and fields by name.
ClassList classList(const QJsonObject& definitions)
{
    ClassList result;
    for (auto definition = definitions.constBegin(); definition != definitions.constEnd(); ++definition) {
        CiClass_s& one = result[definition.key()];
        one.id = definition.value()[key("id")].toInt();
        const QJsonObject fields = definition.value()[key("fields")].toObject();
        for (auto field = fields.constBegin(); field != fields.constEnd(); ++field) {
            one.fields.insert(field.key(), field.value().toInt());
        }
    }
    return result;
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

/// The members of a register definition that has all of them.
struct ModbusInterface::RegisterMembers
{
    int id = 0;
    QString name;
    QString mbType;
    QString ciClass;
    QString ciField;
    int ciIndex = 0;
    QString ciType;

    /// False when a member is missing or of another kind.
    bool read(const QJsonObject& definition)
    {
        const auto number = [&definition](const char* member, int* result) {
            const QJsonValue value = definition.value(key(member));
            *result = value.toInt();
            return value.isDouble();
        };
        const auto text = [&definition](const char* member, QString* result) {
            const QJsonValue value = definition.value(key(member));
            *result = value.toString();
            return value.isString();
        };
        return number("id", &id) && text("name", &name) && text("mb_type", &mbType) &&
               text("ci_class", &ciClass) && text("ci_field", &ciField) && number("ci_index", &ciIndex) &&
               text("ci_type", &ciType);
    }
};

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

bool ModbusInterface::LoadConfig(const QString& filepath)
{
    qDebug() << "Try to open mapping file " << filepath;
    const std::optional<QByteArray> text = readFile(filepath);
    QJsonDocument document;
    if (text) {
        QJsonParseError error{};
        document = QJsonDocument::fromJson(*text, &error);
        if (document.isNull() || error.error != QJsonParseError::NoError) {
            qDebug() << error.errorString();
            return false;
        }
        qDebug() << "Json file parsed";
    }
    qDebug().noquote() << quotedJson(text.value_or(QByteArray()), document);
    jsonCfg = document.object();
    const QJsonObject info = jsonCfg.value(key("info")).toObject();
    qDebug() << "Mapping = " << info.value(key("mapping")).toString();
    qDebug() << "Date    = " << info.value(key("date")).toString();
    qDebug() << "Target  = " << info.value(key("target")).toString();

    const QJsonValue ci = jsonCfg.value(key("ci"));
    const QJsonValue registers = jsonCfg.value(key("registers"));
    const QJsonValue tables = jsonCfg.value(key("tables"));
    if (!ci.isObject()) {
        qDebug() << "CI defs is not an array";
        return false;
    }
    if (!registers.isArray()) {
        qDebug() << "Register defs is not an array";
        return false;
    }
    if (!tables.isArray()) {
        qDebug() << "Table defs is not an array";
        return false;
    }
    LoadRegisters(registers.toArray(), ci.toObject());
    LoadTables(tables.toArray());
    BuildLookup();
    return true;
}

void ModbusInterface::LoadType(const QJsonObject& typetable)
{
    for (auto member = typetable.constBegin(); member != typetable.constEnd(); ++member) {
        const MbTypeRow& row = typeRow(member.key().toLower());
        const int code = member.value().toInt();
        ciTypeList.insert(code, row.type);
        for (const QString& alias : row.aliases) {
            ciTypeLookup.insert(alias, code);
        }
    }
}

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

void ModbusInterface::LoadRegisters(const QJsonArray& definitions, const QJsonObject& ci)
{
    const ClassList classes = classList(ci.value(key("classes")).toObject());
    bool typesLoaded = false;
    for (const QJsonValue& value : definitions) {
        RegisterMembers members;
        if (!members.read(value.toObject())) {
            continue;
        }
        if (!typesLoaded) {
            // Once is enough: the lookups in between only add names that the type table does not define, so
            // loading it again for every register would change nothing.
            LoadType(ci.value(key("types")).toObject());
            typesLoaded = true;
        }
        LoadRegister(members, classes);
    }
}

void ModbusInterface::LoadRegister(const RegisterMembers& members, const ClassList& classes)
{
    MbRegister_s reg;
    reg.name = members.name;
    reg.mbtype = GetCiTypeIndex(members.mbType);
    const auto ciClass = classes.constFind(members.ciClass);
    if (ciClass == classes.constEnd()) {
        return;
    }
    reg.ci.ciType = GetCiTypeIndex(members.ciType);
    const auto field = ciClass->fields.constFind(members.ciField);
    if (field == ciClass->fields.constEnd()) {
        return;
    }
    reg.ci.ciClass = ciClass->id;
    reg.ci.ciField = *field;
    reg.ci.ciIndex = members.ciIndex;
    // The start value is 0 whatever "default" holds: only a "default" that is not a number would be read, and
    // that reads as 0. Panels in the field have always started so, and clients rely on it.
    reg.value = 0;
    registerList.insert(registerList.constEnd(), members.id, reg); // ids mostly ascend
}

void ModbusInterface::LoadTables(const QJsonArray& definitions)
{
    for (const QJsonValue& value : definitions) {
        const QJsonObject definition = value.toObject();
        MbTable_s table;
        table.name = definition.value(key("name")).toString();
        table.mode = AccessModefromString(definition.value(key("mode")).toString());
        const QJsonArray ids = definition.value(key("registers")).toArray();
        table.registers.reserve(ids.size());
        for (const QJsonValue& id : ids) {
            table.registers.append(id.toInt());
        }
        tableList.insert(definition.value(key("address")).toInt(), table);
    }
}

void ModbusInterface::BuildLookup()
{
    // Tables come in ascending order, so in a fresh index only the last address can be the present one. That
    // keeps a value which thousands of tables show from costing the square of their number.
    const bool isFresh = ciLookup.isEmpty();
    auto reg = registerList.constBegin();
    for (auto table = tableList.constBegin(); table != tableList.constEnd(); ++table) {
        for (const int id : table->registers) {
            // Ids mostly follow each other: try the next one first.
            if (reg == registerList.constEnd() || reg.key() != id) {
                reg = registerList.constFind(id);
            }
            if (reg == registerList.constEnd()) {
                continue;
            }
            MbLookup_s& lookup = ciLookup[reg->ci];
            if (lookup.tables.isEmpty()) {
                lookup.reg = id;
                lookup.tables.append(table.key());
            } else if (lookup.tables.last() != table.key() &&
                       (isFresh || !lookup.tables.contains(table.key()))) {
                lookup.tables.append(table.key());
            }
            ++reg;
        }
    }
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

/// The registers that the table takes in the server. Unlike in rendering, 0 is a register id like any other.
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
        // The server is started all the same and reports what it finds.
        qCDebug(lcModbus) << "Cannot write" << file.fileName() << ":" << file.errorString();
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
    std::ignore = runScriptOrLog(script, arguments); // what became of it is the server's to report
    return true;
}

bool ModbusInterface::DbusStopMonitor()
{
    const QString script = bridgeScript("mbserverstop.sh");
    qDebug() << "Stop modbus monitor";
    std::ignore = runScriptOrLog(script, {}); // no server to stop is no failure
    return true;
}

QString ModbusInterface::GenerateDbusUpdateQuery(const QVector<MbRawData_s>& rawdata)
{
    return updateCommand(rawdata);
}

bool ModbusInterface::DbusUpdateRegisters(const QString& data)
{
    const ScriptResult result = runScript(bridgeScript("mbserverupdate.sh"), {data});
    // One argument may have 32 pages, its final NUL included; the kernel starts nothing with a longer one.
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
