// SPDX-License-Identifier: MIT
#include "frameencoder.h"

#include <array>

namespace Simulator {

namespace {

constexpr int headerLength = 16;
constexpr int checksumLength = 2;
constexpr int lengthFieldEnd = 4; // the payload length counts from here to the end, checksum included

constexpr std::array<quint16, 256> buildCrcTable()
{
    std::array<quint16, 256> table{};
    for (unsigned octet = 0; octet < table.size(); ++octet) {
        unsigned remainder = octet;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder & 1U) != 0 ? (remainder >> 1) ^ 0x8408U : remainder >> 1;
        }
        table[octet] = static_cast<quint16>(remainder);
    }
    return table;
}

constexpr std::array<quint16, 256> crcTable = buildCrcTable();

} // namespace

quint16 crcKermit(const QByteArray& octets)
{
    unsigned remainder = 0;
    for (const char octet : octets) {
        remainder = (remainder >> 8) ^ crcTable[(remainder ^ static_cast<uchar>(octet)) & 0xFFU];
    }
    return static_cast<quint16>(remainder);
}

QByteArray littleEndian(quint32 value, int width)
{
    QByteArray octets;
    for (int i = 0; i < width; ++i) {
        octets.append(static_cast<char>(i < 4 ? (value >> (8 * i)) & 0xFFU : 0U));
    }
    return octets;
}

QByteArray encodeSection(quint16 type, const QByteArray& body, std::optional<quint16> length)
{
    const int whole = body.size() + 4;
    return littleEndian(type, 2) + littleEndian(length.value_or(static_cast<quint16>(whole)), 2) + body;
}

QByteArray encodeFrame(const FrameParts& parts)
{
    QByteArray sections;
    for (const QByteArray& section : parts.sections) {
        sections += section;
    }
    const int frameLength = headerLength + sections.size() + checksumLength;
    const quint16 payloadLength =
        parts.payloadLength.value_or(static_cast<quint16>(frameLength - lengthFieldEnd));
    const quint16 sectionCount = parts.sectionCount.value_or(static_cast<quint16>(parts.sections.size()));

    QByteArray frame;
    frame.reserve(frameLength);
    frame += littleEndian(parts.magic, 1);
    frame += littleEndian(parts.version, 1);
    frame += littleEndian(payloadLength, 2);
    frame += littleEndian(parts.sectionOffset, 2);
    frame += littleEndian(sectionCount, 2);
    frame += littleEndian(parts.sequence, 4);
    frame += littleEndian(parts.continuity, 4);
    frame += sections;
    frame += littleEndian(crcKermit(frame) ^ parts.crcXor, 2);
    return frame;
}

} // namespace Simulator
