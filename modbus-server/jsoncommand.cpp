// SPDX-License-Identifier: MIT
#include "jsoncommand.h"

#include <cmath>

#include <QJsonDocument>
#include <QJsonParseError>

namespace Varnel {

namespace {

constexpr int quotedLength = 60;

/// True for a number without a fraction between `low` and `high`; NaN and infinities cannot come from JSON.
bool isIntegerWithin(const QJsonValue& value, int low, int high)
{
    if (!value.isDouble()) {
        return false;
    }
    const double number = value.toDouble();
    return number >= low && number <= high && std::trunc(number) == number;
}

} // namespace

QString quoted(const QString& text)
{
    QString result = text.left(quotedLength);
    for (QChar& character : result) {
        if (!character.isPrint()) {
            character = QLatin1Char('?');
        }
    }
    if (text.size() > quotedLength) {
        result += QLatin1String("...");
    }
    return QLatin1Char('\'') + result + QLatin1Char('\'');
}

void JsonMembers::complain(const QString& name, const QString& what)
{
    const QString where = path.isEmpty() ? name : path + QLatin1Char('.') + name;
    complaints.append(where + QLatin1String(": ") + what);
}

int JsonMembers::integer(const QString& name, int low, int high)
{
    const QJsonValue value = member(name);
    if (!isIntegerWithin(value, low, high)) {
        complain(name, QStringLiteral("must be a whole number from %1 to %2").arg(low).arg(high));
        return 0;
    }
    return static_cast<int>(value.toDouble());
}

int JsonMembers::integerOr(const QString& name, int low, int high, int fallback)
{
    return object.contains(name) ? integer(name, low, high) : fallback;
}

QString JsonMembers::string(const QString& name)
{
    if (!member(name).isString()) {
        complain(name, QStringLiteral("must be a string"));
    }
    return member(name).toString();
}

QJsonArray JsonMembers::array(const QString& name)
{
    if (!member(name).isArray()) {
        complain(name, QStringLiteral("must be an array"));
    }
    return member(name).toArray();
}

QJsonObject JsonMembers::subobject(const QString& name)
{
    if (!member(name).isObject()) {
        complain(name, QStringLiteral("must be an object"));
    }
    return member(name).toObject();
}

Outcome<QJsonObject> parseCommand(const QByteArray& text, const QString& command, const QString& kind,
                                  int limit)
{
    if (text.size() > limit) {
        return Refusal{kind,
                       QStringLiteral("%1 octets are too long, %2 are allowed").arg(text.size()).arg(limit)};
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError) {
        return Refusal{kind,
                       QStringLiteral("not JSON: %1 at octet %2").arg(error.errorString()).arg(error.offset)};
    }
    if (!document.isObject()) {
        return Refusal{kind, QStringLiteral("not a JSON object")};
    }
    QJsonObject object = document.object();
    const QJsonValue given = object.value(QStringLiteral("cmd"));
    if (!given.isString()) {
        return Refusal{kind, QStringLiteral("cmd: must be a string")};
    }
    if (given.toString() != command) {
        return Refusal{
            QStringLiteral("UnknownCommand"),
            QStringLiteral("unknown command %1, expected '%2'").arg(quoted(given.toString()), command)};
    }
    return object;
}

} // namespace Varnel
