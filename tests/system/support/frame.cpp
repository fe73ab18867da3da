// SPDX-License-Identifier: MIT
#include "frame.h"

#include <initializer_list>

namespace VarnelTest {

namespace {

QByteArray little(quint32 value, int width)
{
    QByteArray octets;
    for (int i = 0; i < width; ++i) {
        octets += static_cast<char>(value >> (8 * i));
    }
    return octets;
}

} // namespace

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text);
}

quint16 kermit(const QByteArray& octets)
{
    unsigned remainder = 0;
    for (const char octet : octets) {
        remainder ^= static_cast<unsigned char>(octet);
        for (int bit = 0; bit < 8; ++bit) {
            // 0x8408 is the polynomial 0x1021 read from its other end.
            remainder = (remainder & 1U) != 0 ? (remainder >> 1U) ^ 0x8408U : remainder >> 1U;
        }
    }
    return static_cast<quint16>(remainder);
}

Frame& Frame::section(quint16 type, const QByteArray& body)
{
    return section(type, static_cast<quint16>(body.size() + 4), body);
}

Frame& Frame::section(quint16 type, quint16 length, const QByteArray& body)
{
    sections += little(type, 2) + little(length, 2) + body;
    ++count;
    return *this;
}

Frame& Frame::devInfo(const char* language, quint16 type, quint16 build)
{
    QByteArray body = little(type, 2);
    for (const quint32 hardwareOrSoftware : {1U, 2U, 3U, 4U}) {
        body += little(hardwareOrSoftware, 2);
    }
    body += little(build, 2) + little(4711, 4) + QByteArray(language).leftJustified(8, '\0', true);
    return section(DevInfo, body);
}

Frame& Frame::gpioState(quint8 good, quint8 warning, quint8 critical, quint8 buzzer)
{
    return section(GpioState, little(good, 1) + little(warning, 1) + little(critical, 1) + little(buzzer, 1));
}

Frame& Frame::modbusCfg(quint16 status, quint16 port)
{
    return section(ModbusCfg, little(status, 2) + little(port, 2));
}

Frame& Frame::version(quint8 value)
{
    frameVersion = value;
    return *this;
}

Frame& Frame::continuity(quint32 value)
{
    continuityWord = value;
    return *this;
}

Frame& Frame::sectionCount(quint16 value)
{
    declaredCount = value;
    return *this;
}

Frame& Frame::payloadLength(quint16 value)
{
    declaredLength = value;
    return *this;
}

Frame& Frame::sectionOffset(quint16 value)
{
    declaredOffset = value;
    return *this;
}

QByteArray Frame::octets() const
{
    // The payload is everything behind magic and version, without the checksum: 14 octets of header and the
    // sections.
    const int length = declaredLength >= 0 ? declaredLength : 14 + sections.size();
    QByteArray frame = hex("CE") + little(frameVersion, 1) + little(static_cast<quint32>(length), 2) +
                       little(static_cast<quint32>(declaredOffset), 2) +
                       little(static_cast<quint32>(declaredCount >= 0 ? declaredCount : count), 2) +
                       little(sequence, 4) + little(continuityWord, 4) + sections;
    return frame + little(kermit(frame), 2);
}

RawController::RawController(const QString& source, const QString& panel, quint16 port)
    : panelAddress(panel)
    , panelPort(port)
{
    if (!socket.bind(QHostAddress(source))) {
        qWarning() << "Cannot send from" << source << socket.errorString();
    }
}

bool RawController::send(const QByteArray& datagram)
{
    const bool sent = socket.writeDatagram(datagram, panelAddress, panelPort) == datagram.size();
    if (!sent) {
        qWarning() << "Cannot send" << datagram.size() << "octets:" << socket.errorString();
    }
    return sent;
}

} // namespace VarnelTest
