// SPDX-License-Identifier: MIT
// Reading the mapping file into the bridge's model.
#include "modbusinterface.h"

#include <optional>
#include <utility>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>
#include <QtDebug>

#include "logline.h"
#include "plainjson.h"

namespace Varnel {

namespace {

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

/// The text of a member of an object of either kind.
template<typename Object>
auto textOf(const Object& object, const char* member)
{
    return object.value(key(member)).toString();
}

/// Qt's JSON has its texts as QString, PlainJson as QLatin1String.
template<typename Object>
using TextIn = decltype(textOf(std::declval<Object>(), ""));

/// The members of a register definition that has all of them.
template<typename Text>
struct RegisterMembers
{
    int id = 0;
    Text name;
    Text mbType;
    Text ciClass;
    Text ciField;
    int ciIndex = 0;
    Text ciType;

    /// False when a member is missing or of another kind.
    template<typename Object>
    bool read(const Object& definition)
    {
        const auto number = [&definition](const char* member, int* result) {
            const auto value = definition.value(key(member));
            *result = value.toInt();
            return value.isDouble();
        };
        const auto text = [&definition](const char* member, Text* result) {
            const auto value = definition.value(key(member));
            *result = value.toString();
            return value.isString();
        };
        return number("id", &id) && text("name", &name) && text("mb_type", &mbType) &&
               text("ci_class", &ciClass) && text("ci_field", &ciField) && number("ci_index", &ciIndex) &&
               text("ci_type", &ciType);
    }
};

/// Makes registers of their definitions: knows the numbers behind the names of classes, fields and types.
template<typename Text>
class RegisterMaker
{
public:
    template<typename Object>
    RegisterMaker(ModbusInterface* bridge, const Object& definitions)
        : bridge(bridge)
    {
        for (auto definition = definitions.constBegin(); definition != definitions.constEnd(); ++definition) {
            Class& one = classes[definition.key()];
            const auto members = definition.value().toObject();
            one.id = members.value(key("id")).toInt();
            const auto fields = members.value(key("fields")).toObject();
            for (auto field = fields.constBegin(); field != fields.constEnd(); ++field) {
                one.fields.insert(field.key(), field.value().toInt());
            }
        }
    }

    /// Nothing when the class or the field is not defined. The types count as looked up then, too.
    std::optional<MbRegister_s> make(const RegisterMembers<Text>& members)
    {
        MbRegister_s reg;
        reg.mbtype = typeCode(members.mbType);
        const auto ciClass = classes.constFind(members.ciClass);
        if (ciClass == classes.constEnd()) {
            return std::nullopt;
        }
        reg.ci.ciType = typeCode(members.ciType);
        const auto field = ciClass->fields.constFind(members.ciField);
        if (field == ciClass->fields.constEnd()) {
            return std::nullopt;
        }
        reg.ci.ciClass = ciClass->id;
        reg.ci.ciField = *field;
        reg.ci.ciIndex = members.ciIndex;
        reg.name = members.name;
        // The start value is 0 whatever "default" holds: only a "default" that is not a number would be read,
        // and that reads as 0. Panels in the field have always started so, and clients rely on it.
        reg.value = 0;
        return reg;
    }

private:
    struct Class
    {
        int id = 0;
        QHash<Text, int> fields;
    };

    /// A name's first look-up enters it in the bridge; all later ones would find the same.
    int typeCode(const Text& name)
    {
        const auto known = types.constFind(name);
        return known != types.constEnd() ? *known : *types.insert(name, bridge->GetCiTypeIndex(name));
    }

    ModbusInterface* bridge;
    QHash<Text, Class> classes;
    QHash<Text, int> types;
};

} // namespace

bool ModbusInterface::LoadConfig(const QString& filepath)
{
    qDebug() << "Try to open mapping file " << filepath;
    const std::optional<QByteArray> text = readFile(filepath);
    if (const auto plain = PlainJson::read(text.value_or(QByteArray()))) {
        qDebug() << "Json file parsed";
        logLongLine(plain->quoted());
        jsonCfg = *text;
        return LoadDocument(plain->object());
    }
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
    jsonCfg = text.value_or(QByteArray());
    qDebug() << QString::fromUtf8(document.toJson(QJsonDocument::Compact));
    return LoadDocument(document.object());
}

QJsonObject ModbusInterface::GetJsonCfg() const
{
    return QJsonDocument::fromJson(jsonCfg).object();
}

template<typename Object>
bool ModbusInterface::LoadDocument(const Object& root)
{
    const auto info = root.value(key("info")).toObject();
    qDebug() << "Mapping = " << QString(textOf(info, "mapping"));
    qDebug() << "Date    = " << QString(textOf(info, "date"));
    qDebug() << "Target  = " << QString(textOf(info, "target"));

    const auto ci = root.value(key("ci"));
    const auto registers = root.value(key("registers"));
    const auto tables = root.value(key("tables"));
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
    EnterTypes(typetable);
}

template<typename Object>
void ModbusInterface::EnterTypes(const Object& typetable)
{
    for (auto member = typetable.constBegin(); member != typetable.constEnd(); ++member) {
        const MbTypeRow& row = typeRow(QString(member.key()).toLower());
        const int code = member.value().toInt();
        ciTypeList.insert(code, row.type);
        for (const QString& alias : row.aliases) {
            ciTypeLookup.insert(alias, code);
        }
    }
}

template<typename Array, typename Object>
void ModbusInterface::LoadRegisters(const Array& definitions, const Object& ci)
{
    using Text = TextIn<Object>;
    RegisterMaker<Text> maker(this, ci.value(key("classes")).toObject());
    bool typesLoaded = false;
    for (const auto& definition : definitions) {
        RegisterMembers<Text> members;
        if (!members.read(definition.toObject())) {
            continue;
        }
        if (!typesLoaded) {
            // Once is enough: the lookups in between only add names that the type table does not define, so
            // loading it again for every register would change nothing.
            EnterTypes(ci.value(key("types")).toObject());
            typesLoaded = true;
        }
        if (const auto reg = maker.make(members)) {
            registerList.insert(registerList.constEnd(), members.id, *reg); // ids mostly ascend
        }
    }
}

template<typename Array>
void ModbusInterface::LoadTables(const Array& definitions)
{
    for (const auto& value : definitions) {
        const auto definition = value.toObject();
        MbTable_s table;
        table.name = textOf(definition, "name");
        table.mode = AccessModefromString(textOf(definition, "mode"));
        const auto ids = definition.value(key("registers")).toArray();
        table.registers.reserve(ids.size());
        for (const auto& id : ids) {
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
