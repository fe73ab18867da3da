// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QtEndian>

/// The checksum of a frame, computed bit by bit as the controller's manual has it: CRC-16/KERMIT with the
/// reflected polynomial. It shares nothing with the panel's tables.
inline quint16 bitwiseKermit(const QByteArray& octets)
{
    unsigned crc = 0;
    for (const char octet : octets) {
        crc ^= static_cast<unsigned char>(octet);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1U) != 0 ? (crc >> 1U) ^ 0x8408U : crc >> 1U;
        }
    }
    return static_cast<quint16>(crc);
}

inline QByteArray littleEndian16(quint16 value)
{
    const quint16 wire = qToLittleEndian(value);
    return QByteArray(reinterpret_cast<const char*>(&wire), sizeof wire);
}

inline QByteArray littleEndian32(quint32 value)
{
    const quint32 wire = qToLittleEndian(value);
    return QByteArray(reinterpret_cast<const char*>(&wire), sizeof wire);
}

/// Appends the right checksum.
inline QByteArray sealed(const QByteArray& octets)
{
    return octets + littleEndian16(bitwiseKermit(octets));
}

/// `text` in a field of `width` octets, filled up with NUL; nothing ends a text that fills its field.
inline QByteArray textField(const QByteArray& text, int width)
{
    return text.left(width).leftJustified(width, '\0');
}

/// One section: header and body. The length counts both unless `length` says something else.
inline QByteArray section(quint16 type, const QByteArray& body, int length = -1)
{
    return littleEndian16(type) +
           littleEndian16(static_cast<quint16>(length < 0 ? body.size() + 4 : length)) + body;
}

/// One item of a Core section.
inline QByteArray coreItem(quint16 ciClass, quint16 ciField, quint8 instance, quint8 type,
                           const QByteArray& value, int datalen = -1)
{
    return littleEndian16(ciClass) + littleEndian16(ciField) + char(instance) + char(type) +
           littleEndian16(static_cast<quint16>(datalen < 0 ? value.size() : datalen)) + value;
}

/// A whole datagram. Payload length, section count and checksum are filled in, unless a test sets them.
class FrameBuilder
{
public:
    FrameBuilder& add(const QByteArray& octets)
    {
        sections += octets;
        ++added;
        return *this;
    }
    FrameBuilder& magic(quint8 value) { return set(magicOctet, value); }
    FrameBuilder& version(quint8 value) { return set(versionOctet, value); }
    FrameBuilder& payloadLength(int value) { return set(declaredLength, value); }
    FrameBuilder& sectionOffset(quint16 value) { return set(offset, value); }
    FrameBuilder& sectionCount(int value) { return set(count, value); }
    FrameBuilder& sequence(quint32 value) { return set(seqno, value); }
    FrameBuilder& continuity(quint32 value) { return set(continuityWord, value); }

    /// The datagram without its checksum, as the decoder sees it after its checks.
    QByteArray unsealed() const
    {
        const int length = declaredLength < 0 ? 14 + sections.size() : declaredLength;
        return QByteArray(1, char(magicOctet)) + char(versionOctet) +
               littleEndian16(static_cast<quint16>(length)) + littleEndian16(offset) +
               littleEndian16(static_cast<quint16>(count < 0 ? added : count)) + littleEndian32(seqno) +
               littleEndian32(continuityWord) + sections;
    }

    QByteArray octets() const { return sealed(unsealed()); }

private:
    template<typename T, typename V>
    FrameBuilder& set(T& member, V value)
    {
        member = value;
        return *this;
    }

    QByteArray sections;
    int added = 0;
    quint8 magicOctet = 0xCE;
    quint8 versionOctet = 1;
    int declaredLength = -1;
    quint16 offset = 14;
    int count = -1;
    quint32 seqno = 1;
    quint32 continuityWord = 1;
};
