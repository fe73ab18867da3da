// SPDX-License-Identifier: MIT
#include "controllerstate.h"

#include "frameencoder.h"

#include <QHostAddress>
#include <QStringList>

#include <optional>

namespace Simulator {

namespace {

const char* const outputWords[] = {"off", "on", "slow", "fast"};

QString textOf(const QJsonValue& value)
{
    if (value.isBool()) {
        return value.toBool() ? QStringLiteral("on") : QStringLiteral("off");
    }
    return value.isDouble() ? QString::number(value.toDouble(), 'f', 0) : value.toString();
}

std::optional<quint32> readNumber(const QString& text, int width)
{
    bool ok = false;
    const quint64 number = text.toULongLong(&ok, 0);
    const quint64 limit = (quint64(1) << (8 * width)) - 1;
    if (!ok || number > limit) {
        return std::nullopt;
    }
    return static_cast<quint32>(number);
}

std::optional<QByteArray> encodeFlag(const QString& text, int width)
{
    if (text == QLatin1String("on") || text == QLatin1String("true")) {
        return littleEndian(1, width);
    }
    if (text == QLatin1String("off") || text == QLatin1String("false")) {
        return littleEndian(0, width);
    }
    const std::optional<quint32> number = readNumber(text, width);
    return number ? std::optional(littleEndian(*number, width)) : std::nullopt;
}

std::optional<QByteArray> encodeOutput(const QString& text, int width)
{
    for (quint32 command = 0; command < std::size(outputWords); ++command) {
        if (text == QLatin1String(outputWords[command])) {
            return littleEndian(command, width);
        }
    }
    const std::optional<quint32> number = readNumber(text, width);
    return number ? std::optional(littleEndian(*number, width)) : std::nullopt;
}

std::optional<QByteArray> encodeAddress(const QString& text)
{
    QHostAddress address;
    if (text.count(QLatin1Char('.')) != 3 || !address.setAddress(text)) {
        return std::nullopt;
    }
    QByteArray octets = littleEndian(address.toIPv4Address(), 4);
    std::reverse(octets.begin(), octets.end()); // only addresses are sent first octet first
    return octets;
}

std::optional<QByteArray> encodeText(const QString& text, int width)
{
    const QByteArray octets = text.toUtf8();
    return octets.size() > width ? std::nullopt : std::optional(octets.leftJustified(width, '\0'));
}

std::optional<QByteArray> encodeField(const Field& field, const QString& text)
{
    switch (field.kind) {
    case FieldKind::Flag:
        return encodeFlag(text, field.width);
    case FieldKind::Output:
        return encodeOutput(text, field.width);
    case FieldKind::Address:
        return encodeAddress(text);
    case FieldKind::Text:
        return encodeText(text, field.width);
    case FieldKind::Number:
        break;
    }
    const std::optional<quint32> number = readNumber(text, field.width);
    return number ? std::optional(littleEndian(*number, field.width)) : std::nullopt;
}

quint32 readLittleEndian(const QByteArray& octets)
{
    quint32 value = 0;
    for (int i = octets.size() - 1; i >= 0; --i) {
        value = (value << 8) | static_cast<uchar>(octets.at(i));
    }
    return value;
}

QJsonValue decodeField(const Field& field, const QByteArray& octets)
{
    switch (field.kind) {
    case FieldKind::Flag:
        return readLittleEndian(octets) != 0;
    case FieldKind::Output: {
        const quint32 command = readLittleEndian(octets);
        return command < std::size(outputWords) ? QJsonValue(QLatin1String(outputWords[command]))
                                                : QJsonValue(static_cast<double>(command));
    }
    case FieldKind::Address: {
        QByteArray reversed = octets;
        std::reverse(reversed.begin(), reversed.end());
        return QHostAddress(readLittleEndian(reversed)).toString();
    }
    case FieldKind::Text: {
        const int end = octets.indexOf('\0');
        return QString::fromUtf8(end < 0 ? octets : octets.left(end));
    }
    case FieldKind::Number:
        break;
    }
    return static_cast<double>(readLittleEndian(octets));
}

const Field* findField(const QString& path)
{
    const SectionLayout* layout = findLayout(path.section(QLatin1Char('.'), 0, 0));
    if (layout == nullptr) {
        return nullptr;
    }
    const QString name = path.section(QLatin1Char('.'), 1);
    for (const Field& field : layout->fields) {
        if (name == QLatin1String(field.name)) {
            return &field;
        }
    }
    return nullptr;
}

} // namespace

ControllerState::ControllerState()
{
    for (const SectionLayout& layout : sectionLayouts()) {
        QByteArray octets = encodeSection(layout.type, QByteArray(layout.length - sectionHeaderLength, '\0'));
        for (const Field& field : layout.fields) {
            const auto encoded = encodeField(field, QLatin1String(field.initial));
            octets.replace(field.offset, field.width, encoded.value_or(QByteArray(field.width, '\0')));
        }
        sections.insert(QLatin1String(layout.name), octets);
    }
}

Varnel::Outcome<> ControllerState::set(const QString& path, const QJsonValue& value)
{
    const Field* field = findField(path);
    if (field == nullptr) {
        return Varnel::Refusal(QStringLiteral("unknown field \"%1\"").arg(path));
    }
    const std::optional<QByteArray> encoded = encodeField(*field, textOf(value));
    if (!encoded) {
        return Varnel::Refusal(
            QStringLiteral("value \"%2\" does not fit field \"%1\"").arg(path, textOf(value)));
    }
    sections[path.section(QLatin1Char('.'), 0, 0)].replace(field->offset, field->width, *encoded);
    return {};
}

QByteArray ControllerState::section(const QString& name) const
{
    return sections.value(name);
}

QJsonValue ControllerState::value(const QString& path) const
{
    const Field* field = findField(path);
    if (field == nullptr) {
        return {QJsonValue::Undefined};
    }
    const QByteArray octets = sections.value(path.section(QLatin1Char('.'), 0, 0));
    return decodeField(*field, octets.mid(field->offset, field->width));
}

QJsonObject ControllerState::toJson() const
{
    QJsonObject whole;
    for (const SectionLayout& layout : sectionLayouts()) {
        QJsonObject fields;
        for (const Field& field : layout.fields) {
            const QString path =
                QStringLiteral("%1.%2").arg(QLatin1String(layout.name), QLatin1String(field.name));
            fields.insert(QLatin1String(field.name), value(path));
        }
        whole.insert(QLatin1String(layout.name), fields);
    }
    return whole;
}

} // namespace Simulator
