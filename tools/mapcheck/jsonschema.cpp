// SPDX-License-Identifier: MIT
#include "jsonschema.h"

#include <cmath>

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>

namespace {

QLatin1String key(const char* name)
{
    return QLatin1String(name);
}

QString inQuotes(const QString& text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

/// The words of a message for a value; `type` is a type name of JSON Schema.
QString described(const QString& type)
{
    static const struct
    {
        const char* type;
        const char* words;
    } names[] = {
        {"integer", "a whole number"},
        {"number", "a number"},
        {"string", "a text"},
        {"object", "an object"},
        {"array", "an array"},
        {"boolean", "true or false"},
        {"null", "null"},
    };
    for (const auto& name : names) {
        if (type == QLatin1String(name.type)) {
            return QLatin1String(name.words);
        }
    }
    return type;
}

bool isWhole(double number)
{
    return std::floor(number) == number;
}

QString typeOf(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return key("boolean");
    case QJsonValue::Double:
        return isWhole(value.toDouble()) ? key("integer") : key("number");
    case QJsonValue::String:
        return key("string");
    case QJsonValue::Array:
        return key("array");
    case QJsonValue::Object:
        return key("object");
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    return key("null");
}

QString number(double value)
{
    return QString::number(value, 'g', 15);
}

/// One check of one document.
class Check
{
public:
    explicit Check(const QJsonObject& schema)
        : root(schema)
    {
    }

    void value(const QJsonObject& reference, const QJsonValue& checked, const JsonPath& path);

    QVector<JsonSchema::Violation> violations;

private:
    QJsonObject resolved(const QJsonObject& schema) const;
    void range(const QJsonObject& schema, double checked, const JsonPath& path);
    void choice(const QJsonArray& choices, const QJsonValue& checked, const JsonPath& path);
    void members(const QJsonObject& schema, const QJsonObject& checked, const JsonPath& path);
    void report(const JsonPath& path, const QString& text) { violations.append({path, text}); }

    const QJsonObject& root;
};

/// The schema that "$ref" leads to: "#/definitions/name".
QJsonObject Check::resolved(const QJsonObject& schema) const
{
    const QString reference = schema.value(key("$ref")).toString();
    if (reference.isEmpty()) {
        return schema;
    }
    QJsonObject found = root;
    for (const QString& step : reference.mid(2).split(QLatin1Char('/'))) {
        found = found.value(step).toObject();
    }
    return found;
}

void Check::value(const QJsonObject& reference, const QJsonValue& checked, const JsonPath& path)
{
    const QJsonObject schema = resolved(reference);
    const QString wanted = schema.value(key("type")).toString();
    const QString actual = typeOf(checked);
    if (!wanted.isEmpty() && actual != wanted && !(wanted == key("number") && actual == key("integer"))) {
        report(path, QStringLiteral("has to be %1, not %2")
                         .arg(described(wanted),
                              actual == key("number") ? QStringLiteral("a fraction") : described(actual)));
        return;
    }
    if (schema.contains(key("enum"))) {
        choice(schema.value(key("enum")).toArray(), checked, path);
    }
    if (checked.isDouble()) {
        range(schema, checked.toDouble(), path);
    }
    if (checked.isArray() && schema.contains(key("items"))) {
        const QJsonObject items = schema.value(key("items")).toObject();
        int index = 0;
        const QJsonArray elements = checked.toArray();
        for (const QJsonValue& element : elements) {
            value(items, element, path / index++);
        }
    }
    if (checked.isObject()) {
        members(schema, checked.toObject(), path);
    }
}

void Check::range(const QJsonObject& schema, double checked, const JsonPath& path)
{
    const QJsonValue lowest = schema.value(key("minimum"));
    const QJsonValue highest = schema.value(key("maximum"));
    if ((lowest.isDouble() && checked < lowest.toDouble()) ||
        (highest.isDouble() && checked > highest.toDouble())) {
        report(path, QStringLiteral("is %1, beyond %2 to %3")
                         .arg(number(checked), number(lowest.toDouble()), number(highest.toDouble())));
    }
}

void Check::choice(const QJsonArray& choices, const QJsonValue& checked, const JsonPath& path)
{
    if (choices.contains(checked)) {
        return;
    }
    QStringList names;
    for (const QJsonValue& name : choices) {
        names << inQuotes(name.toString());
    }
    report(path, QStringLiteral("has to be one of %1").arg(names.join(QLatin1String(", "))));
}

void Check::members(const QJsonObject& schema, const QJsonObject& checked, const JsonPath& path)
{
    const QJsonArray required = schema.value(key("required")).toArray();
    for (const QJsonValue& name : required) {
        if (!checked.contains(name.toString())) {
            report(path, QStringLiteral("lacks %1").arg(inQuotes(name.toString())));
        }
    }
    const QRegularExpression names(
        schema.value(key("propertyNames")).toObject().value(key("pattern")).toString());
    const QJsonObject known = schema.value(key("properties")).toObject();
    const QJsonValue others = schema.value(key("additionalProperties"));
    for (auto member = checked.constBegin(); member != checked.constEnd(); ++member) {
        if (!names.match(member.key()).hasMatch()) {
            report(path / member.key(), QStringLiteral("is no name known here"));
        }
        if (known.contains(member.key())) {
            value(known.value(member.key()).toObject(), member.value(), path / member.key());
        } else if (others.isObject()) {
            value(others.toObject(), member.value(), path / member.key());
        }
    }
}

} // namespace

JsonSchema::JsonSchema(const QJsonObject& schema)
    : schema(schema)
{
}

QVector<JsonSchema::Violation> JsonSchema::check(const QJsonValue& value) const
{
    Check check(schema);
    check.value(schema, value, {});
    return check.violations;
}
