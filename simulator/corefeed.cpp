// SPDX-License-Identifier: MIT
#include "corefeed.h"

#include "frameencoder.h"
#include "wirelayout.h"

#include <QJsonObject>

#include <cmath>

namespace Simulator {

namespace {

/// Range and width of the integer types.
struct IntegerRange
{
    CoreType type;
    int width;
    qint64 lowest;
    qint64 highest;
};

constexpr IntegerRange integerRanges[] = {
    {CoreType::Uint8, 1, 0, 0xFF},        {CoreType::Int8, 1, -0x80, 0x7F},
    {CoreType::Uint16, 2, 0, 0xFFFF},     {CoreType::Int16, 2, -0x8000, 0x7FFF},
    {CoreType::Uint32, 4, 0, 0xFFFFFFFF}, {CoreType::Int32, 4, -qint64(0x80000000), 0x7FFFFFFF},
};

/// Control clients send all values as text; this converts them to their type.
std::optional<double> numberOf(const QJsonValue& value)
{
    if (value.isDouble()) {
        return value.toDouble();
    }
    if (value.isBool()) {
        return value.toBool() ? 1 : 0;
    }
    bool ok = false;
    const double number = value.toString().toDouble(&ok);
    return ok ? std::optional(number) : std::nullopt;
}

std::optional<QByteArray> encodeInteger(const IntegerRange& range, const QJsonValue& value)
{
    const std::optional<double> number = numberOf(value);
    if (!number || std::floor(*number) != *number || *number < static_cast<double>(range.lowest) ||
        *number > static_cast<double>(range.highest)) {
        return std::nullopt;
    }
    return littleEndian(static_cast<quint32>(static_cast<qint64>(*number)), range.width);
}

std::optional<QByteArray> encodeBool(const QJsonValue& value)
{
    const QString text = value.toString();
    if (text == QLatin1String("on") || text == QLatin1String("true")) {
        return QByteArray(1, '\1');
    }
    if (text == QLatin1String("off") || text == QLatin1String("false")) {
        return QByteArray(1, '\0');
    }
    const std::optional<double> number = numberOf(value);
    return number ? std::optional(QByteArray(1, *number != 0 ? '\1' : '\0')) : std::nullopt;
}

QByteArray reversed(QByteArray octets)
{
    std::reverse(octets.begin(), octets.end());
    return octets;
}

/// 0 up to `top` and down again, one step at a time.
qint64 triangle(quint32 step, qint64 top)
{
    const qint64 position = step % (2 * top);
    return position <= top ? position : 2 * top - position;
}

} // namespace

std::optional<QByteArray> encodeCoreValue(CoreType type, const QJsonValue& value)
{
    for (const IntegerRange& range : integerRanges) {
        if (range.type == type) {
            return encodeInteger(range, value);
        }
    }
    if (type == CoreType::Bool) {
        return encodeBool(value);
    }
    if (type == CoreType::Float) {
        const std::optional<double> number = numberOf(value);
        return number ? std::optional(reversed(QByteArray::number(*number, 'g', 7))) : std::nullopt;
    }
    if (type == CoreType::String) {
        return reversed(value.isDouble() ? QByteArray::number(value.toDouble(), 'g', 15)
                                         : value.toString().toUtf8());
    }
    return std::nullopt;
}

void CoreFeed::setPoints(const QList<CorePoint>& corePoints)
{
    values.clear();
    for (const CorePoint& point : corePoints) {
        const int position = values.size();
        values.append({point, generate(point, position), false});
    }
}

void CoreFeed::advance()
{
    ++step;
    for (int position = 0; position < values.size(); ++position) {
        if (!values.at(position).held) {
            values[position].current = generate(values.at(position).point, position);
        }
    }
}

QJsonValue CoreFeed::generate(const CorePoint& point, int position) const
{
    const quint32 moment = step + static_cast<quint32>(position) * 7; // so that neighbours differ
    switch (point.type) {
    case CoreType::Bool:
        return moment / 5 % 2 == 1;
    case CoreType::Uint8:
        return triangle(moment, 100);
    case CoreType::Int8:
        return triangle(moment, 40) - 20;
    case CoreType::Uint16:
        return 2250 + triangle(moment, 100);
    case CoreType::Int16:
        return triangle(moment, 300) - 150;
    case CoreType::Uint32:
        return static_cast<double>(1000U * static_cast<quint32>(position) + step);
    case CoreType::Int32:
        return triangle(moment * 10, 2000) - 1000;
    case CoreType::Float:
        return std::round(100 * (20 + 5 * std::sin(moment / 10.0))) / 100;
    case CoreType::String: // digits, so that a numeric register fed from a text shows something
        return QString::number(70012345 + position);
    case CoreType::Other:
        break;
    }
    return {};
}

QList<int> CoreFeed::find(const QString& key) const
{
    QList<int> positions;
    for (int position = 0; position < values.size(); ++position) {
        const CorePoint& point = values.at(position).point;
        if (key == QLatin1String("*") || key == QString::number(point.registerId) || key == point.name) {
            positions.append(position);
        }
    }
    return positions;
}

Varnel::Outcome<> CoreFeed::hold(const QString& key, const QJsonValue& value)
{
    const QList<int> positions = find(key);
    if (positions.isEmpty()) {
        return Varnel::Refusal(QStringLiteral("unknown value \"core.%1\"").arg(key));
    }
    for (const int position : positions) {
        if (!encodeCoreValue(values.at(position).point.type, value)) {
            return Varnel::Refusal(QStringLiteral("value \"%1\" does not fit \"core.%2\"")
                                       .arg(value.toVariant().toString(), key));
        }
    }
    for (const int position : positions) {
        values[position].current = value;
        values[position].held = true;
    }
    return {};
}

Varnel::Outcome<> CoreFeed::release(const QString& key)
{
    const QList<int> positions = find(key);
    if (positions.isEmpty() && key != QLatin1String("*")) {
        return Varnel::Refusal(QStringLiteral("unknown value \"core.%1\"").arg(key));
    }
    for (const int position : positions) {
        values[position].held = false;
    }
    return {};
}

namespace {

QByteArray encodeItem(const CorePoint& point, const QByteArray& octets)
{
    return littleEndian(point.ciClass, 2) + littleEndian(point.ciField, 2) + littleEndian(point.instance, 1) +
           littleEndian(point.typeCode, 1) + littleEndian(static_cast<quint32>(octets.size()), 2) + octets;
}

} // namespace

void CoreFeed::addRawItem(const CorePoint& coordinate, const QByteArray& octets)
{
    rawItems.append(encodeItem(coordinate, octets));
}

QByteArray CoreFeed::section() const
{
    QByteArray body;
    for (const Value& value : values) {
        if (const auto octets = encodeCoreValue(value.point.type, value.current)) {
            body += encodeItem(value.point, *octets);
        }
    }
    for (const QByteArray& item : rawItems) {
        body += item;
    }
    return encodeSection(coreSectionType, body);
}

QJsonArray CoreFeed::toJson() const
{
    QJsonArray list;
    for (const Value& value : values) {
        list.append(QJsonObject{{QStringLiteral("id"), value.point.registerId},
                                {QStringLiteral("name"), value.point.name},
                                {QStringLiteral("value"), value.current},
                                {QStringLiteral("held"), value.held}});
    }
    return list;
}

} // namespace Simulator
