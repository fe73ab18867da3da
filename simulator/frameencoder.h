// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

namespace Simulator {

/// CRC-16/KERMIT: polynomial 0x1021 reflected (0x8408), initial value 0, no final XOR; 0x2189 for the ASCII
/// digits 1 to 9.
quint16 crcKermit(const QByteArray& octets);

/// `value` as `width` octets, least significant first.
QByteArray littleEndian(quint32 value, int width);

/// A section: the 4-octet header with `type` and the length of header and body, then the body. `length`
/// overrides the length field only, to build sections with a wrong length.
QByteArray encodeSection(quint16 type, const QByteArray& body, std::optional<quint16> length = std::nullopt);

/// Everything that goes into one frame. The defaults are those of a correct frame; the optional members
/// replace what would be computed, for frames that are wrong on purpose.
struct FrameParts
{
    quint8 magic = 0xCE;
    quint8 version = 1;
    quint32 sequence = 1;
    quint32 continuity = 1;
    quint16 sectionOffset = 14; ///< the first section starts 2 octets further, directly after the header
    QList<QByteArray> sections;
    std::optional<quint16> payloadLength; ///< else the octets of the whole frame less 4
    std::optional<quint16> sectionCount;  ///< else the number of sections
    quint16 crcXor = 0;                   ///< flips bits of the correct checksum
};

/// The datagram: header of 16 octets, the sections, the checksum over all octets before it.
QByteArray encodeFrame(const FrameParts& parts);

} // namespace Simulator
