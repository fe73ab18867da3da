// SPDX-License-Identifier: MIT
#include "modbusencoding.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace Varnel {

namespace {

constexpr int bitsPerWord = 16;

quint32 maskOf(int byteSize)
{
    constexpr quint32 masks[] = {0, 0xFF, 0xFFFF, 0xFFFFFF, 0xFFFFFFFF};
    return byteSize >= 1 && byteSize <= 4 ? masks[byteSize] : 0;
}

MbEncoding_s::Raw rawOf(const QString& name)
{
    using Raw = MbEncoding_s::Raw;
    // "uint" is tested before "int": every unsigned name also contains "int".
    static const struct
    {
        QLatin1String part;
        Raw raw = Raw::Bool;
    } kinds[] = {
        {QLatin1String("bool"), Raw::Bool},
        {QLatin1String("uint"), Raw::Unsigned},
        {QLatin1String("int"), Raw::Signed},
        {QLatin1String("float"), Raw::Float},
    };
    for (const auto& kind : kinds) {
        if (name.contains(kind.part)) {
            return kind.raw;
        }
    }
    return Raw::Zero;
}

quint32 floatBits(float value)
{
    static_assert(sizeof(float) == sizeof(quint32) && std::numeric_limits<float>::is_iec559);
    quint32 bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// True for a floating-point number, infinity and NaN included, whose integer part does not fit 64 bits.
bool isBeyondWholeNumbers(const QVariant& value)
{
    const int type = value.userType();
    return (type == QMetaType::Float || type == QMetaType::Double) && !(std::abs(value.toDouble()) < 0x1p63);
}

/// The raw value of such a number. C++ does not define its conversion, and processors differ: 1E30 gives 0 on
/// x86 and 0xFFFFFFFF on ARM.
quint32 rawValueBeyond(const QVariant& value, MbEncoding_s::Raw raw)
{
    return raw == MbEncoding_s::Raw::Bool && !std::isnan(value.toDouble()) ? 1 : 0;
}

quint32 rawValue(const QVariant& value, MbEncoding_s::Raw raw)
{
    if (raw != MbEncoding_s::Raw::Float && isBeyondWholeNumbers(value)) {
        return rawValueBeyond(value, raw);
    }
    switch (raw) {
    case MbEncoding_s::Raw::Bool:
        return value.toBool() ? 1 : 0;
    case MbEncoding_s::Raw::Unsigned:
        return static_cast<quint32>(value.toULongLong());
    case MbEncoding_s::Raw::Signed:
        return static_cast<quint32>(value.toLongLong());
    case MbEncoding_s::Raw::Float:
        return floatBits(value.toFloat());
    case MbEncoding_s::Raw::Zero:
        break;
    }
    return 0;
}

/// The payload as one big-endian number; 0 when it does not fit 32 bits.
quint32 unsignedNumber(const QByteArray& payload)
{
    if (payload.size() > int(sizeof(quint32))) {
        return 0;
    }
    quint32 number = 0;
    for (const char octet : payload) {
        number = number << 8 | static_cast<quint8>(octet);
    }
    return number;
}

/// The same as a signed number; 0 when the sign bit is set.
qint32 signedNumber(const QByteArray& payload)
{
    const quint32 number = unsignedNumber(payload);
    return number > quint32(std::numeric_limits<qint32>::max()) ? 0 : static_cast<qint32>(number);
}

float decimalText(const QByteArray& payload)
{
    bool ok = false;
    const float number = payload.toFloat(&ok);
    return ok ? number : 0.0F;
}

QString text(const QByteArray& payload)
{
    return QString::fromUtf8(payload.constData(), int(qstrnlen(payload.constData(), uint(payload.size()))));
}

using Decoder = QVariant (*)(const QByteArray&);

constexpr struct
{
    const char* typeName;
    Decoder decode;
} decoders[] = {
    {"bool", [](const QByteArray& octets) { return QVariant(unsignedNumber(octets) != 0); }},
    {"uint8",
     [](const QByteArray& octets) { return QVariant(int(static_cast<quint8>(unsignedNumber(octets)))); }},
    {"int8",
     [](const QByteArray& octets) { return QVariant(int(static_cast<qint8>(signedNumber(octets)))); }},
    {"uint16",
     [](const QByteArray& octets) { return QVariant(int(static_cast<quint16>(unsignedNumber(octets)))); }},
    {"int16",
     [](const QByteArray& octets) { return QVariant(int(static_cast<qint16>(signedNumber(octets)))); }},
    {"uint32", [](const QByteArray& octets) { return QVariant(uint(unsignedNumber(octets))); }},
    {"int32", [](const QByteArray& octets) { return QVariant(int(signedNumber(octets))); }},
    {"float", [](const QByteArray& octets) { return QVariant(decimalText(octets)); }},
    {"string", [](const QByteArray& octets) { return QVariant(text(octets)); }},
};

} // namespace

MbEncoding_s encodingOf(const QString& name, int byteSize, int mbSize)
{
    return {rawOf(name), maskOf(byteSize), mbSize};
}

void appendWords(QVector<quint16>* words, const QVariant& value, const MbEncoding_s& encoding)
{
    const quint64 raw = rawValue(value, encoding.raw) & encoding.mask;
    for (int i = encoding.words - 1; i >= 0; --i) {
        const int shift = bitsPerWord * i;
        words->append(shift < 32 ? static_cast<quint16>(raw >> shift) : quint16(0));
    }
}

QVariant decodePayload(const QString& typeName, const QByteArray& payload)
{
    for (const auto& decoder : decoders) {
        if (typeName == QLatin1String(decoder.typeName)) {
            return decoder.decode(payload);
        }
    }
    return QVariant(0);
}

} // namespace Varnel
