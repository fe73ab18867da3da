// SPDX-License-Identifier: MIT
// Reading the mapping file into the bridge's model.
#include "modbusinterface.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>
#include <QtDebug>

namespace Varnel {

namespace {

constexpr QLatin1String key(const char* name)
{
    return QLatin1String(name);
}

QString textOf(const QJsonObject& object, const char* member)
{
    return object.value(key(member)).toString();
}

} // namespace

/// The members of a register definition that has all of them.
struct ModbusInterface::Definition
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

bool ModbusInterface::LoadConfig(const QString& filepath)
{
    qDebug() << "Try to open mapping file " << filepath;
    QJsonDocument document;
    QFile file(filepath);
    if (file.open(QIODevice::ReadOnly)) {
        QJsonParseError error{};
        document = QJsonDocument::fromJson(file.readAll(), &error);
        if (document.isNull() || error.error != QJsonParseError::NoError) {
            qDebug() << error.errorString();
            return false;
        }
        qDebug() << "Json file parsed";
    }
    qDebug() << QString::fromUtf8(document.toJson(QJsonDocument::Compact));
    jsonCfg = document.object();
    return LoadDocument();
}

bool ModbusInterface::LoadDocument()
{
    const QJsonObject info = jsonCfg.value(key("info")).toObject();
    qDebug() << "Mapping = " << textOf(info, "mapping");
    qDebug() << "Date    = " << textOf(info, "date");
    qDebug() << "Target  = " << textOf(info, "target");

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

void ModbusInterface::LoadRegisters(const QJsonArray& definitions, const QJsonObject& ci)
{
    const QJsonObject classes = ci.value(key("classes")).toObject();
    bool typesLoaded = false;
    for (const QJsonValue& value : definitions) {
        Definition definition;
        if (!definition.read(value.toObject())) {
            continue;
        }
        if (!typesLoaded) {
            // Once is enough: the lookups in between only add names that the type table does not define.
            LoadType(ci.value(key("types")).toObject());
            typesLoaded = true;
        }
        LoadRegister(definition, classes);
    }
}

void ModbusInterface::LoadRegister(const Definition& definition, const QJsonObject& classes)
{
    MbRegister_s reg;
    reg.mbtype = GetCiTypeIndex(definition.mbType);
    const QJsonValue ciClass = classes.value(definition.ciClass);
    if (ciClass.isUndefined()) {
        return;
    }
    reg.ci.ciType = GetCiTypeIndex(definition.ciType);
    const QJsonValue ciField = ciClass[key("fields")].toObject().value(definition.ciField);
    if (ciField.isUndefined()) {
        return;
    }
    reg.ci.ciClass = ciClass[key("id")].toInt();
    reg.ci.ciField = ciField.toInt();
    reg.ci.ciIndex = definition.ciIndex;
    reg.name = definition.name;
    // The start value is 0 whatever "default" holds: only a "default" that is not a number would be read, and
    // that reads as 0. Panels in the field have always started so, and clients rely on it.
    reg.value = 0;
    registerList.insert(registerList.constEnd(), definition.id, reg); // ids mostly ascend
}

void ModbusInterface::LoadTables(const QJsonArray& definitions)
{
    for (const QJsonValue& value : definitions) {
        const QJsonObject definition = value.toObject();
        MbTable_s table;
        table.name = textOf(definition, "name");
        table.mode = AccessModefromString(textOf(definition, "mode"));
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
    // Tables come in ascending order, so in a fresh index only the last address of a value can be the present
    // one. A search through all of them would take quadratic time for a value that thousands of tables show.
    const bool isFresh = ciLookup.isEmpty();
    ciLookup.reserve(registerList.size());
    auto reg = registerList.constBegin();
    for (auto table = tableList.constBegin(); table != tableList.constEnd(); ++table) {
        const QVector<int> thisAlone{table.key()}; // shared by all values that no other table shows
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
                lookup.tables = thisAlone;
            } else if (lookup.tables.last() != table.key() &&
                       (isFresh || !lookup.tables.contains(table.key()))) {
                lookup.tables.append(table.key());
            }
            ++reg;
        }
    }
}

} // namespace Varnel
