// SPDX-License-Identifier: MIT
#include "mapchecker.h"

#include <algorithm>
#include <limits>

#include <QFile>
#include <QJsonDocument>
#include <QMap>

#include "jsonschema.h"

using Varnel::MbType_s;
using Varnel::ModbusInterface;

/// The resources of a static library are not there by themselves. (The macro does not work in a namespace.)
static void initResources()
{
    Q_INIT_RESOURCE(mapcheck);
}

namespace {

constexpr int addressSpace = 65536;

/// Octets of the longest update command that can be handed to a script: one argument has 32 pages of 4096
/// octets, its final NUL included.
constexpr qint64 longestCommand = 32 * 4096 - 1;

QLatin1String key(const char* name)
{
    return QLatin1String(name);
}

QString string(const char* text)
{
    return QString(QLatin1String(text));
}

QString quoted(const QString& text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

JsonPath registerPath(int index)
{
    return JsonPath() / string("registers") / index;
}

JsonPath tablePath(int index)
{
    return JsonPath() / string("tables") / index;
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

QString registerName(const QJsonObject& reg)
{
    return QStringLiteral("register %1 %2")
        .arg(reg.value(key("id")).toInt())
        .arg(quoted(reg.value(key("name")).toString()));
}

QString tableName(const QJsonObject& table)
{
    return QStringLiteral("table %1").arg(quoted(table.value(key("name")).toString()));
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

QString wordCount(int words)
{
    return QStringLiteral("%1 %2").arg(words).arg(words == 1 ? string("word") : string("words"));
}

/// The names under which the types of the mapping can be referred to.
QSet<QString> namesOfTypes(const QJsonObject& types)
{
    ModbusInterface loader;
    loader.LoadType(types);
    const QList<QString> names = loader.GetCiTypeLookup().keys();
    return QSet<QString>(names.begin(), names.end());
}

bool isWholeNumberType(const MbType_s& type)
{
    return type.name.contains(key("int"));
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
             QStringLiteral("%1 stands twice in one object; only one counts").arg(quoted(duplicate.name))});
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
    for (const JsonSchema::Violation& violation : JsonSchema(mappingSchema()).check(top)) {
        error(violation.path, pathText(violation.path) + QLatin1Char(' ') + violation.text);
        const JsonPath& path = violation.path;
        if (path.size() >= 2 && path[0] == JsonStep(string("registers"))) {
            faultyRegisters.insert(std::get<int>(path[1]));
        }
    }
}

/// Whether the panel goes beyond the main members at all.
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
}

void MapChecker::checkRegister(const Definition& reg)
{
    const JsonPath path = registerPath(reg.index);
    checkTypeName(reg, "mb_type");
    checkTypeName(reg, "ci_type");
    checkSource(reg);
    checkWidth(reg);
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
        faultyRegisters.insert(reg.index);
        return;
    }
    const QJsonObject ciClass = classes.value(className.toString()).toObject();
    const QJsonObject fields = ciClass.value(key("fields")).toObject();
    if (!fields.contains(fieldName.toString())) {
        error(path / string("ci_field"), QStringLiteral("%1: unknown field %2 of class %3")
                                             .arg(registerName(reg.members), quoted(fieldName.toString()),
                                                  quoted(className.toString())));
        faultyRegisters.insert(reg.index);
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

/// A whole number must not lose its upper half on the way into the register.
void MapChecker::checkWidth(const Definition& reg)
{
    const auto typeOf = [&](const char* member) {
        const QString name = reg.members.value(key(member)).toString();
        return bridge->GetCiTypeList().value(bridge->GetCiTypeLookup().value(name));
    };
    const MbType_s shown = typeOf("mb_type");
    const MbType_s sent = typeOf("ci_type");
    if (isWholeNumberType(shown) && isWholeNumberType(sent) && sent.byteSize > shown.byteSize) {
        warning(registerPath(reg.index) / string("mb_type"),
                QStringLiteral("%1: %2 is cut to the %3 bits of %4")
                    .arg(registerName(reg.members), sent.name)
                    .arg(8 * shown.byteSize)
                    .arg(shown.name));
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
        } else if (id > 0 && !bridge->GetRegisterList().contains(id)) {
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
        if (!listed.contains(reg.key())) {
            warning(registerPath(registerIndices.value(reg.key())),
                    QStringLiteral("register %1 %2 is in no table").arg(reg.key()).arg(quoted(reg->name)));
        }
    }
}

void MapChecker::checkRows()
{
    QMap<int, QVector<RegisterRow>> tables;
    for (const RegisterRow& row : registerRows(*bridge)) {
        tables[row.table].append(row);
        if (row.words == 0 && !row.type.isEmpty()) {
            warning(entryPath(row),
                    QStringLiteral("register %1 %2 of type %3 takes no words; what follows moves down")
                        .arg(row.id)
                        .arg(quoted(row.name), quoted(row.type)));
        }
    }
    for (const QVector<RegisterRow>& rows : tables) {
        checkAlignment(rows);
    }
}

/// Ids are meant to be addresses. Where the first one of a table is (or is one off, counted from 1), every
/// further one has to keep the same distance; a table that numbers its registers otherwise is mentioned once.
void MapChecker::checkAlignment(const QVector<RegisterRow>& rows)
{
    const RegisterRow& first = rows.first();
    int distance = first.id - first.address;
    if (std::abs(distance) > 1) {
        warning(entryPath(first),
                QStringLiteral("register %1 %2 comes to stand at address %3; the ids of this table "
                               "are no addresses")
                    .arg(first.id)
                    .arg(quoted(first.name))
                    .arg(first.address));
        return;
    }
    for (int i = 1; i < rows.size(); ++i) {
        const RegisterRow& row = rows[i];
        const RegisterRow& before = rows[i - 1];
        const bool isShifted = row.id - row.address != distance;
        distance = row.id - row.address;
        // What has no type at all has been reported, and what it moves is no news.
        if (isShifted && !row.type.isEmpty() && !before.type.isEmpty()) {
            warning(entryPath(row),
                    QStringLiteral(
                        "register %1 %2 comes to stand at address %3: register %4 before it takes %5 as %6")
                        .arg(row.id)
                        .arg(quoted(row.name))
                        .arg(row.address)
                        .arg(before.id)
                        .arg(wordCount(before.words), before.type));
        }
    }
}

JsonPath MapChecker::entryPath(const RegisterRow& row) const
{
    return tablePath(tableIndices.value(row.table)) / string("registers") / row.entry;
}

/// Tables side by side in the address space, with the words that the panel renders for them.
void MapChecker::checkLengths()
{
    constexpr int wordOctets = 6;   // "65535,"
    constexpr int tableOctets = 40; // {"address":65535,"values":[]},
    qint64 command = tableOctets;
    qint64 end = std::numeric_limits<qint64>::min();
    QString before;
    for (const int address : bridge->GetTableList().keys()) {
        const int words = bridge->ComputeRawData({address}).first().values.size();
        const QString name = tableName({{string("name"), bridge->GetTableList()[address].name}});
        const JsonPath path = tablePath(tableIndices.value(address));
        if (address < end) {
            error(path, QStringLiteral("%1 at %2 overlaps %3, which ends at %4")
                            .arg(name)
                            .arg(address)
                            .arg(before)
                            .arg(end - 1));
        }
        if (qint64(address) + words > addressSpace) {
            error(path, QStringLiteral("%1 at %2 does not fit the address space").arg(name).arg(address));
        }
        command += tableOctets + qint64(words) * wordOctets;
        if (qint64(address) + words > end) {
            end = qint64(address) + words;
            before = name;
        }
    }
    if (command > longestCommand) {
        warning(
            JsonPath() / string("tables"),
            QStringLiteral("an update of all tables may have %1 octets; the panel cannot send more than %2")
                .arg(command)
                .arg(longestCommand));
    }
}
