// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVector>

namespace Varnel {

/// How the values of one Modbus type become register words.
struct MbEncoding_s
{
    /// How the value becomes the raw 32-bit number.
    enum class Raw
    {
        Zero,
        Bool,
        Unsigned,
        Signed,
        Float,
    };

    Raw raw = Raw::Zero;
    quint32 mask = 0; ///< bits of the raw number that are kept
    int words = 0;    ///< 16-bit registers, most significant first
};

/// The encoding of the type with the canonical name `name`, `byteSize` octets and `mbSize` registers. A type
/// that is not a number gives the raw value 0; a size outside 1 to 4 octets keeps no bit.
[[nodiscard]] MbEncoding_s encodingOf(const QString& name, int byteSize, int mbSize);

/// Appends `value` to `words` in the given encoding. Values of other kinds are converted by QVariant's rules.
void appendWords(QVector<quint16>* words, const QVariant& value, const MbEncoding_s& encoding);

/// The value that the controller sent as `payload` (most significant octet first) under the type with the
/// canonical name `typeName`: a bool, an int, an unsigned int, a float or a string, and the int 0 for any
/// other type. An integer payload that is empty or longer than four octets counts as 0. For the signed types
/// a payload above 7fffffff counts as 0 too, so the controller's negative 32-bit values arrive as 0. A float
/// travels as decimal text, never as IEEE 754 octets; text that is no number counts as 0.
[[nodiscard]] QVariant decodePayload(const QString& typeName, const QByteArray& payload);

} // namespace Varnel
