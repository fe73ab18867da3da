// SPDX-License-Identifier: MIT
#include "frame.h"

#include <QtEndian>

namespace {

QByteArray octet(quint8 value)
{
    return QByteArray(1, static_cast<char>(value));
}

template<typename Integer>
QByteArray littleEndian(Integer value)
{
    const Integer wire = qToLittleEndian(value);
    return QByteArray(reinterpret_cast<const char*>(&wire), sizeof wire);
}

} // namespace

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace('|', ' '));
}

quint16 kermit(const QByteArray& octets)
{
    unsigned remainder = 0;
    for (const char one : octets) {
        remainder ^= static_cast<unsigned char>(one);
        for (int bit = 0; bit < 8; ++bit) {
            // 0x8408 is the polynomial 0x1021 read from its other end.
            remainder = (remainder & 1U) != 0 ? (remainder >> 1U) ^ 0x8408U : remainder >> 1U;
        }
    }
    return static_cast<quint16>(remainder);
}

QByteArray littleEndian16(quint16 value)
{
    return littleEndian(value);
}

QByteArray littleEndian32(quint32 value)
{
    return littleEndian(value);
}

QByteArray sealed(const QByteArray& octets)
{
    return octets + littleEndian16(kermit(octets));
}

QByteArray textField(const QByteArray& text, int width)
{
    return text.left(width).leftJustified(width, '\0');
}

QByteArray section(quint16 type, const QByteArray& body, int length)
{
    return littleEndian16(type) +
           littleEndian16(static_cast<quint16>(length < 0 ? body.size() + 4 : length)) + body;
}

QByteArray coreItem(quint16 ciClass, quint16 ciField, quint8 instance, quint8 type, const QByteArray& value,
                    int datalen)
{
    return littleEndian16(ciClass) + littleEndian16(ciField) + octet(instance) + octet(type) +
           littleEndian16(static_cast<quint16>(datalen < 0 ? value.size() : datalen)) + value;
}

QByteArray devInfoSection(quint16 type, quint16 build, const QByteArray& language)
{
    return section(DevInfo, littleEndian16(type) + hex("01 00 | 02 00 | 03 00 | 04 00") +
                                littleEndian16(build) + hex("78 56 34 12") + textField(language, 8));
}

QByteArray gpioSection(quint8 good, quint8 warning, quint8 critical, quint8 buzzer)
{
    return section(GpioState, octet(good) + octet(warning) + octet(critical) + octet(buzzer));
}

QByteArray netCfgSection(bool varnel, bool dhcp)
{
    return section(NetCfg, octet(varnel) + octet(dhcp) +
                               hex("c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | c0 a8 01 02 | c0 a8 01 03"));
}

QByteArray snmpCfgSection(quint8 version, quint8 clientMode)
{
    QByteArray body = octet(version) + hex("00 | 01 | 02 | 01") + octet(clientMode) + hex("02 | 02");
    for (const char* const text :
         {"ro_user", "nopriv_user", "nopriv_pwd", "priv_user", "priv_pwd", "priv_key", "oid", "ro_oid",
          "nopriv_oid", "priv_oid", "context", "community", "cli_engineid", "cli_community", "cli_user",
          "cli_pwd", "cli_key"}) {
        body += textField(text, 32);
    }
    body += littleEndian16(1161) + littleEndian16(1162);
    for (quint8 host = 1; host <= 5; ++host) {
        body += hex("0a 00 00") + octet(host);
    }
    return section(SnmpCfg, body);
}

QByteArray modbusCfgSection(quint16 status, quint16 port)
{
    return section(ModbusCfg, littleEndian16(status) + littleEndian16(port));
}

Frame& Frame::add(const QByteArray& octets)
{
    sections += octets;
    ++count;
    return *this;
}

QByteArray Frame::unsealed() const
{
    const int length = declaredLength < 0 ? 14 + sections.size() : declaredLength;
    return octet(magicOctet) + octet(versionOctet) + littleEndian16(static_cast<quint16>(length)) +
           littleEndian16(offset) +
           littleEndian16(static_cast<quint16>(declaredCount < 0 ? count : declaredCount)) +
           littleEndian32(seqno) + littleEndian32(continuityWord) + sections;
}
