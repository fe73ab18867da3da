// SPDX-License-Identifier: MIT
#include "mapchecker.h"

#include <algorithm>

#include <QFile>
#include <QJsonDocument>

#include "jsonschema.h"
#include "mappingtexts.h"

using Varnel::MbType_s;
using Varnel::ModbusInterface;

/// The resources of a static library have to be initialised explicitly. (The macro does not work in a
/// namespace.)
static void initResources()
{
    Q_INIT_RESOURCE(mapcheck);
}

namespace {

QLatin1String key(const char* name)
{
    return QLatin1String(name);
}

QString string(const char* text)
{
    return QString(QLatin1String(text));
}

/// registers[3].ci_index
QString pathText(const JsonPath& path)
{
    QString text;
    for (const JsonStep& step : path) {
        if (const auto* name = std::get_if<QString>(&step)) {
            text += (text.isEmpty() ? QString() : string(".")) + *name;
        } else {
            text += QStringLiteral("[%1]").arg(std::get<int>(step));
        }
    }
    return text.isEmpty() ? string("mapping") : text;
}

QJsonObject mappingSchema()
{
    initResources();
    QFile file(QStringLiteral(":/modbus-map.schema.json"));
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("the schema is not in the program");
    }
    return QJsonDocument::fromJson(file.readAll()).object();
}

/// The names that can refer to the types of the mapping.
QSet<QString> namesOfTypes(const QJsonObject& types)
{
    ModbusInterface loader;
    loader.LoadType(types);
    const QList<QString> names = loader.GetCiTypeLookup().keys();
    return QSet<QString>(names.begin(), names.end());
}

/// Every name of the type that `name` seems to mean.
QSet<QString> aliasesOf(const QString& name)
{
    ModbusInterface loader;
    int code = 0;
    QJsonObject types;
    for (const char* type : {"bool", "u8", "s8", "u16", "s16", "u32", "s32", "float", "string", "struct"}) {
        types.insert(string(type), ++code);
    }
    loader.LoadType(types);
    const auto& codes = loader.GetCiTypeLookup();
    const QList<QString> names = codes.keys(codes.value(name.toLower(), -1));
    return QSet<QString>(names.begin(), names.end());
}

} // namespace

MapChecker::MapChecker(const QByteArray& text, ModbusInterface* bridge)
    : bridge(bridge)
{
    QJsonParseError problem = {};
    const QJsonDocument document = QJsonDocument::fromJson(text, &problem);
    if (problem.error != QJsonParseError::NoError) {
        found.append({Finding::Severity::Error, JsonLocator::lineAt(text, problem.offset),
                      QStringLiteral("not JSON: %1").arg(problem.errorString())});
        return;
    }
    places.emplace(text);
    mapping = document.object();
    for (const JsonLocator::Duplicate& duplicate : places->duplicates()) {
        found.append(
            {Finding::Severity::Error, duplicate.line,
             QStringLiteral("%1 appears twice in one object; only one counts").arg(quoted(duplicate.name))});
    }
    checkSchema(document);
    if (isLoadable()) {
        checkTypes();
        checkClasses();
        checkRegisters();
        checkTables();
        checkUnlisted();
        checkRows();
        checkLengths();
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Finding& left, const Finding& right) { return left.line < right.line; });
}

int MapChecker::count(Finding::Severity severity) const
{
    return int(std::count_if(found.cbegin(), found.cend(),
                             [severity](const Finding& finding) { return finding.severity == severity; }));
}

void MapChecker::report(Finding::Severity severity, const JsonPath& path, const QString& text)
{
    found.append({severity, places->line(path), text});
}

void MapChecker::checkSchema(const QJsonDocument& document)
{
    const QJsonValue top = document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    const QVector<JsonSchema::Violation> violations = JsonSchema(mappingSchema()).check(top);
    for (const JsonSchema::Violation& violation : violations) {
        noteFault(violation.path);
    }
    for (const JsonSchema::Violation& violation : violations) {
        if (!isKnownFault(violation.path)) {
            error(violation.path, pathText(violation.path) + QLatin1Char(' ') + violation.text);
        }
    }
}

/// A consequence of a fault is not reported as another fault.
void MapChecker::noteFault(const JsonPath& path)
{
    if (path.size() >= 2 && path[0] == JsonStep(string("registers"))) {
        noteFaultyRegister(std::get<int>(path[1]));
    } else if (path.size() >= 2 && path[0] == JsonStep(string("tables"))) {
        faultyTables.insert(std::get<int>(path[1]));
    } else if (path.size() == 3 && path[1] == JsonStep(string("types"))) {
        faultyTypes += aliasesOf(std::get<QString>(path[2]));
    }
}

/// An entry of a table that repeats the wrong id of a register.
bool MapChecker::isKnownFault(const JsonPath& path) const
{
    if (path.size() != 4 || path[0] != JsonStep(string("tables"))) {
        return false;
    }
    const QJsonObject table = mapping.value(key("tables")).toArray().at(std::get<int>(path[1])).toObject();
    const auto* const entry = std::get_if<int>(&path[3]);
    return entry != nullptr && faultyIds.contains(table.value(key("registers")).toArray().at(*entry).toInt());
}

void MapChecker::noteFaultyRegister(int index)
{
    const QJsonValue id = mapping.value(key("registers")).toArray().at(index).toObject().value(key("id"));
    faultyRegisters.insert(index);
    faultyIds.insert(id.isString() ? id.toString().toInt() : int(std::clamp(id.toDouble(), -1e9, 1e9)));
}

/// Whether the panel reads more than the main members.
bool MapChecker::isLoadable() const
{
    return mapping.value(key("ci")).isObject() && mapping.value(key("registers")).isArray() &&
           mapping.value(key("tables")).isArray();
}

void MapChecker::checkTypes()
{
    const JsonPath path = JsonPath() / string("ci") / string("types");
    const QJsonObject types = mapping.value(key("ci")).toObject().value(key("types")).toObject();
    typeNames = namesOfTypes(types);
    checkNumbers(types, path, string("type"));
    QHash<QString, QString> definedBy;
    for (const QString& member : types.keys()) {
        const QString name = member.toLower();
        if (definedBy.contains(name)) {
            error(path / member, QStringLiteral("type %1 is defined by %2 already")
                                     .arg(quoted(member), quoted(definedBy[name])));
        }
        definedBy.insert(name, member);
    }
}

/// Two members of one object must not have the same number.
void MapChecker::checkNumbers(const QJsonObject& objects, const JsonPath& path, const QString& kind)
{
    QHash<int, QString> owners;
    for (auto member = objects.constBegin(); member != objects.constEnd(); ++member) {
        const QJsonValue number = member.value().isObject() ? member.value()[key("id")] : member.value();
        const QString owner = owners.value(number.toInt());
        if (!owner.isNull()) {
            error(path / member.key(), QStringLiteral("%1 %2 has the number %3 of %4")
                                           .arg(kind, quoted(member.key()))
                                           .arg(number.toInt())
                                           .arg(quoted(owner)));
        }
        owners.insert(number.toInt(), member.key());
    }
}

void MapChecker::checkClasses()
{
    const JsonPath path = JsonPath() / string("ci") / string("classes");
    const QJsonObject classes = mapping.value(key("ci")).toObject().value(key("classes")).toObject();
    checkNumbers(classes, path, string("class"));
    for (auto one = classes.constBegin(); one != classes.constEnd(); ++one) {
        checkNumbers(one.value()[key("fields")].toObject(), path / one.key() / string("fields"),
                     string("field"));
    }
}

void MapChecker::checkRegisters()
{
    const QJsonArray registers = mapping.value(key("registers")).toArray();
    for (int i = 0; i < registers.size(); ++i) {
        if (registers[i].isObject()) {
            checkRegister({i, registers[i].toObject()});
        }
    }
    checkFloats();
}

void MapChecker::checkRegister(const Definition& reg)
{
    const JsonPath path = registerPath(reg.index);
    checkTypeName(reg, "mb_type");
    checkTypeName(reg, "ci_type");
    checkSource(reg);
    checkEncoding(reg);
    if (reg.members.value(key("default")).toDouble() != 0) {
        warning(path / string("default"),
                registerName(reg.members) +
                    QStringLiteral(": \"default\" has no effect, every register starts at 0"));
    }
    if (!reg.members.value(key("id")).isDouble()) {
        return;
    }
    const int id = reg.members.value(key("id")).toInt();
    if (registerIndices.contains(id)) {
        error(path / string("id"), QStringLiteral("%1 replaces the one of line %2")
                                       .arg(registerName(reg.members))
                                       .arg(places->line(registerPath(registerIndices[id]))));
    }
    registerIndices.insert(id, reg.index);
    if (!bridge->GetRegisterList().contains(id) && !faultyRegisters.contains(reg.index)) {
        error(path, registerName(reg.members) + QStringLiteral(" is left out by the panel"));
    }
}

void MapChecker::checkTypeName(const Definition& reg, const char* member)
{
    const QJsonValue name = reg.members.value(key(member));
    if (!name.isString() || typeNames.contains(name.toString())) {
        return;
    }
    noteFaultyRegister(reg.index);
    if (faultyTypes.contains(name.toString())) {
        return;
    }
    const bool isCase = typeNames.contains(name.toString().toLower());
    error(registerPath(reg.index) / string(member),
          QStringLiteral("%1: unknown type %2%3")
              .arg(registerName(reg.members), quoted(name.toString()),
                   isCase ? string(", types are referred to in lower case") : QString()));
}

/// The controller's value: its class and field have to be there, and no other register may show it.
void MapChecker::checkSource(const Definition& reg)
{
    const QJsonValue className = reg.members.value(key("ci_class"));
    const QJsonValue fieldName = reg.members.value(key("ci_field"));
    const QJsonObject classes = mapping.value(key("ci")).toObject().value(key("classes")).toObject();
    if (!className.isString() || !fieldName.isString()) {
        return;
    }
    const JsonPath path = registerPath(reg.index);
    if (!classes.contains(className.toString())) {
        error(path / string("ci_class"), QStringLiteral("%1: unknown class %2")
                                             .arg(registerName(reg.members), quoted(className.toString())));
        noteFaultyRegister(reg.index);
        return;
    }
    const QJsonObject ciClass = classes.value(className.toString()).toObject();
    const QJsonObject fields = ciClass.value(key("fields")).toObject();
    if (!fields.contains(fieldName.toString())) {
        error(path / string("ci_field"), QStringLiteral("%1: unknown field %2 of class %3")
                                             .arg(registerName(reg.members), quoted(fieldName.toString()),
                                                  quoted(className.toString())));
        noteFaultyRegister(reg.index);
        return;
    }
    if (faultyRegisters.contains(reg.index)) {
        return;
    }
    const QString coordinate =
        QStringLiteral("%1 %2 %3 %4")
            .arg(ciClass.value(key("id")).toInt())
            .arg(fields.value(fieldName.toString()).toInt())
            .arg(reg.members.value(key("ci_index")).toInt())
            .arg(bridge->GetCiTypeLookup().value(reg.members.value(key("ci_type")).toString()));
    const int id = reg.members.value(key("id")).toInt();
    if (coordinates.contains(coordinate)) {
        error(path,
              QStringLiteral("%1 shows the same value as register %2; only one of them is kept up to date")
                  .arg(registerName(reg.members))
                  .arg(coordinates[coordinate]));
    } else {
        coordinates.insert(coordinate, id);
    }
}

void MapChecker::checkTables()
{
    const QJsonArray tables = mapping.value(key("tables")).toArray();
    for (int i = 0; i < tables.size(); ++i) {
        const Definition table{i, tables[i].toObject()};
        const int address = table.members.value(key("address")).toInt();
        if (tableIndices.contains(address)) {
            error(tablePath(i) / string("address"), QStringLiteral("%1 replaces the one of line %2")
                                                        .arg(tableName(table.members))
                                                        .arg(places->line(tablePath(tableIndices[address]))));
        }
        tableIndices.insert(address, i);
        const QString mode = table.members.value(key("mode")).toString();
        if (mode.contains(QLatin1Char('w'))) {
            warning(tablePath(i) / string("mode"),
                    QStringLiteral("%1: mode %2, but the server serves every table read-only")
                        .arg(tableName(table.members), quoted(mode)));
        }
        checkEntries(table);
    }
}

void MapChecker::checkEntries(const Definition& table)
{
    const QJsonArray ids = table.members.value(key("registers")).toArray();
    const JsonPath path = tablePath(table.index) / string("registers");
    QSet<int> listed;
    for (int i = 0; i < ids.size(); ++i) {
        const int id = ids[i].toInt();
        const QString entry = QStringLiteral("%1: entry %2").arg(tableName(table.members)).arg(id);
        if (id == 0) {
            error(path / i, entry + QStringLiteral(" is no register, and no gap either"));
        } else if (id > 0 && !bridge->GetRegisterList().contains(id) && !faultyIds.contains(id)) {
            error(path / i, entry + QStringLiteral(" is no register of this mapping"));
        } else if (id > 0 && listed.contains(id)) {
            warning(path / i, entry + QStringLiteral(" is listed twice"));
        }
        listed.insert(id);
    }
}

void MapChecker::checkUnlisted()
{
    QSet<int> listed;
    for (const Varnel::MbTable_s& table : bridge->GetTableList()) {
        for (const int id : table.registers) {
            listed.insert(id);
        }
    }
    const auto& registers = bridge->GetRegisterList();
    for (auto reg = registers.constBegin(); reg != registers.constEnd(); ++reg) {
        if (!listed.contains(reg.key()) && !faultyIds.contains(reg.key())) {
            warning(registerPath(registerIndices.value(reg.key())),
                    QStringLiteral("register %1 %2 is in no table").arg(reg.key()).arg(quoted(reg->name)));
        }
    }
}
