// SPDX-License-Identifier: MIT
#include "coremap.h"

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QStringList>

#include <optional>

namespace Simulator {

namespace {

/// A type that a mapping file can define: the member name that defines it, and the names that may then refer
/// to it (without capitals; references are exact).
struct TypeRule
{
    CoreType type;
    const char* definedBy;
    std::vector<const char*> references;
};

const std::vector<TypeRule>& typeRules()
{
    static const std::vector<TypeRule> rules = {
        {CoreType::Bool, "bool", {"bool", "boolean"}},
        {CoreType::Uint8, "u8", {"u8", "uint8"}},
        {CoreType::Int8, "s8", {"s8", "sint8", "int8"}},
        {CoreType::Uint16, "u16", {"u16", "uint16"}},
        {CoreType::Int16, "s16", {"s16", "sint16", "int16"}},
        {CoreType::Uint32, "u32", {"u32", "uint32"}},
        {CoreType::Int32, "s32", {"s32", "sint32", "int32"}},
        {CoreType::Float, "float", {"float", "float32"}},
        {CoreType::String, "string", {"string", "str"}},
    };
    return rules;
}

/// A number that fits `width` octets, from JSON.
std::optional<int> numberWithin(const QJsonValue& value, int width)
{
    const int number = value.toInt(-1);
    if (number < 0 || number >= 1 << (8 * width)) {
        return std::nullopt;
    }
    return number;
}

/// The contents of the "ci" object, looked up by the names that registers use.
class Dictionary
{
public:
    explicit Dictionary(const QJsonObject& ci)
        : classes(ci.value(QLatin1String("classes")).toObject())
    {
        const QJsonObject types = ci.value(QLatin1String("types")).toObject();
        for (auto member = types.begin(); member != types.end(); ++member) {
            define(member.key().toLower(), member.value());
        }
    }

    [[nodiscard]] std::optional<CorePoint> resolve(const QJsonObject& reg) const
    {
        const QJsonObject ciClass = classes.value(reg.value(QLatin1String("ci_class")).toString()).toObject();
        const QJsonObject fields = ciClass.value(QLatin1String("fields")).toObject();
        const auto classId = numberWithin(ciClass.value(QLatin1String("id")), 2);
        const auto fieldId = numberWithin(fields.value(reg.value(QLatin1String("ci_field")).toString()), 2);
        const auto instance = numberWithin(reg.value(QLatin1String("ci_index")), 1);
        const auto type = references.constFind(reg.value(QLatin1String("ci_type")).toString());
        const QJsonValue id = reg.value(QLatin1String("id"));
        if (!classId || !fieldId || !instance || type == references.constEnd() || !id.isDouble()) {
            return std::nullopt;
        }

        CorePoint point;
        point.registerId = id.toInt();
        point.name = reg.value(QLatin1String("name")).toString();
        point.ciClass = static_cast<quint16>(*classId);
        point.ciField = static_cast<quint16>(*fieldId);
        point.instance = static_cast<quint8>(*instance);
        point.typeCode = type->first;
        point.type = type->second;
        return point;
    }

private:
    void define(const QString& name, const QJsonValue& value)
    {
        const auto code = numberWithin(value, 1);
        if (!code) {
            return;
        }
        for (const TypeRule& rule : typeRules()) {
            if (name != QLatin1String(rule.definedBy)) {
                continue;
            }
            for (const char* reference : rule.references) {
                references.insert(QLatin1String(reference), {static_cast<quint8>(*code), rule.type});
            }
        }
    }

    QJsonObject classes;
    QHash<QString, QPair<quint8, CoreType>> references;
};

/// The values of all registers; refused when one of them cannot have a value.
Varnel::Outcome<QList<CorePoint>> collect(const QJsonObject& mapping)
{
    const Dictionary dictionary(mapping.value(QLatin1String("ci")).toObject());
    QList<CorePoint> points;
    QSet<quint64> seen;
    const QJsonArray registers = mapping.value(QLatin1String("registers")).toArray();
    for (const QJsonValue& reg : registers) {
        const std::optional<CorePoint> point = dictionary.resolve(reg.toObject());
        if (!point) {
            return Varnel::Refusal(
                QStringLiteral("register %1 \"%2\" names no known class, field, index or type")
                    .arg(reg[QLatin1String("id")].toInt())
                    .arg(reg[QLatin1String("name")].toString()));
        }
        const quint64 coordinate = (quint64(point->ciClass) << 32) | (quint64(point->ciField) << 16) |
                                   (quint64(point->instance) << 8) | point->typeCode;
        if (!seen.contains(coordinate)) {
            seen.insert(coordinate);
            points.append(*point);
        }
    }
    return points;
}

} // namespace

Varnel::Outcome<QList<CorePoint>> readCoreMap(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return Varnel::Refusal(
            QStringLiteral("cannot read mapping file \"%1\": %2").arg(path, file.errorString()));
    }
    QJsonParseError problem{};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &problem);
    if (!document.isObject()) {
        return Varnel::Refusal(
            QStringLiteral("mapping file \"%1\" is not a JSON object: %2").arg(path, problem.errorString()));
    }
    Varnel::Outcome<QList<CorePoint>> points = collect(document.object());
    if (!points) {
        return Varnel::Refusal(
            QStringLiteral("mapping file \"%1\": %2 (see modbus-map-check)").arg(path, points.refusal.text));
    }
    if (points.value->isEmpty()) {
        return Varnel::Refusal(QStringLiteral("mapping file \"%1\" names no controller value").arg(path));
    }
    return points;
}

} // namespace Simulator
