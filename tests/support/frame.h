// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/// Section types on the wire.
enum SectionType : quint16
{
    DevInfo = 0x10,
    GpioState = 0x20,
    NetCfg = 0x30,
    SnmpCfg = 0x40,
    ModbusCfg = 0x60,
    Core = 0x80,
};

/// Octets from hexadecimal text; blanks and "|" between fields are there for the reader alone.
QByteArray hex(const char* text);

/// CRC-16/KERMIT of `octets`, bit by bit from its definition. It shares nothing with the panel's tables.
quint16 kermit(const QByteArray& octets);

QByteArray littleEndian16(quint16 value);
QByteArray littleEndian32(quint32 value);

/// `octets` with the right checksum behind them.
QByteArray sealed(const QByteArray& octets);

/// `text` in a field of `width` octets, filled up with NUL; nothing ends a text that fills its field.
QByteArray textField(const QByteArray& text, int width);

/// One section: header and body. The length counts both unless `length` says something else.
QByteArray section(quint16 type, const QByteArray& body, int length = -1);

/// One item of a Core section.
QByteArray coreItem(quint16 ciClass, quint16 ciField, quint8 instance, quint8 type, const QByteArray& value,
                    int datalen = -1);

/// Sections of every kind with plain values, put together field by field.
QByteArray devInfoSection(quint16 type = 7, quint16 build = 42, const QByteArray& language = "");
QByteArray gpioSection(quint8 good, quint8 warning, quint8 critical, quint8 buzzer);
/// 192.168.1.10/24 by 192.168.1.1, name servers 192.168.1.2 and .3.
QByteArray netCfgSection(bool varnel = true, bool dhcp = false);
/// Every text is the name of its field; the traps go to 10.0.0.1 to 10.0.0.5. Hash codes are SHA for the
/// encrypted user and the trap client, MD5 for the other; the ciphers DES and AES.
QByteArray snmpCfgSection(quint8 version = 1, quint8 clientMode = 1);
QByteArray modbusCfgSection(quint16 status = 1, quint16 port = 502);

/// A whole datagram as a controller sends it. Payload length, section count and checksum follow from the
/// contents unless they are set to something else.
class Frame
{
public:
    explicit Frame(quint32 sequenceNumber = 1)
        : seqno(sequenceNumber)
    {
    }

    /// Adds a section, header and body.
    Frame& add(const QByteArray& octets);
    Frame& section(quint16 type, const QByteArray& body) { return add(::section(type, body)); }
    Frame& devInfo(const char* language, quint16 type = 7, quint16 build = 1234)
    {
        return add(devInfoSection(type, build, language));
    }
    Frame& gpioState(quint8 good, quint8 warning, quint8 critical, quint8 buzzer)
    {
        return add(gpioSection(good, warning, critical, buzzer));
    }
    Frame& modbusCfg(quint16 status, quint16 port) { return add(modbusCfgSection(status, port)); }

    Frame& magic(quint8 value) { return set(magicOctet, value); }
    Frame& version(quint8 value) { return set(versionOctet, value); }
    Frame& payloadLength(int value) { return set(declaredLength, value); }
    Frame& sectionOffset(quint16 value) { return set(offset, value); }
    Frame& sectionCount(int value) { return set(declaredCount, value); }
    Frame& sequence(quint32 value) { return set(seqno, value); }
    Frame& continuity(quint32 value) { return set(continuityWord, value); }

    /// The datagram without its checksum, as the decoder sees it after its checks.
    QByteArray unsealed() const;
    /// The whole datagram.
    QByteArray octets() const { return sealed(unsealed()); }

private:
    template<typename T, typename V>
    Frame& set(T& member, V value)
    {
        member = value;
        return *this;
    }

    QByteArray sections;
    int count = 0;
    quint8 magicOctet = 0xCE;
    quint8 versionOctet = 1;
    int declaredLength = -1;
    quint16 offset = 14;
    int declaredCount = -1;
    quint32 seqno;
    quint32 continuityWord = 1;
};
