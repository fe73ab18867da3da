// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QUdpSocket>

namespace VarnelTest {

/// Section types as they stand on the wire.
enum SectionType : quint16
{
    DevInfo = 0x10,
    GpioState = 0x20,
    NetCfg = 0x30,
    SnmpCfg = 0x40,
    ModbusCfg = 0x60,
    Core = 0x80,
};

/// Octets from hexadecimal text; blanks are for the reader.
QByteArray hex(const char* text);

/// CRC-16/KERMIT of `octets`, bit by bit from its definition.
quint16 kermit(const QByteArray& octets);

/// Builds one datagram as a controller sends it. Payload length, section count and checksum follow from the
/// contents unless they are set to something else.
class Frame
{
public:
    explicit Frame(quint32 sequenceNumber)
        : sequence(sequenceNumber)
    {
    }

    /// Adds a section whose length field is right for `body`.
    Frame& section(quint16 type, const QByteArray& body);
    /// Adds a section whose length field says `length`.
    Frame& section(quint16 type, quint16 length, const QByteArray& body);
    Frame& devInfo(const char* language, quint16 type = 7, quint16 build = 1234);
    Frame& gpioState(quint8 good, quint8 warning, quint8 critical, quint8 buzzer);
    Frame& modbusCfg(quint16 status, quint16 port);

    Frame& version(quint8 value);
    Frame& continuity(quint32 value);
    Frame& sectionCount(quint16 value);
    Frame& payloadLength(quint16 value);
    Frame& sectionOffset(quint16 value);

    /// The whole datagram.
    QByteArray octets() const;

private:
    quint8 frameVersion = 1;
    quint32 sequence;
    quint32 continuityWord = 1;
    int count = 0;
    int declaredCount = -1;
    int declaredLength = -1;
    int declaredOffset = 14;
    QByteArray sections;
};

/// A controller that sends whatever a test wants, from a given address of this host.
class RawController
{
public:
    /// Sends from `source` to the panel's default port at `panel`, by default the broadcast address of the
    /// sandbox's eth1, where a panel with default settings listens.
    explicit RawController(const QString& source = QStringLiteral("192.168.7.2"),
                           const QString& panel = QStringLiteral("192.168.7.255"), quint16 port = 9876);

    /// Sends one datagram; false when the kernel refuses.
    bool send(const QByteArray& datagram);
    bool send(const Frame& frame) { return send(frame.octets()); }

private:
    QUdpSocket socket;
    QHostAddress panelAddress;
    quint16 panelPort;
};

} // namespace VarnelTest
