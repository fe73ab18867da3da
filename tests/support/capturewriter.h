// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QFile>
#include <QHostAddress>
#include <QString>
#include <QtEndian>

/// Writes capture files octet by octet, without the library that reads them.
class CaptureWriter
{
public:
    /// `linkType` is the number in the file: 1 Ethernet, 101 raw IP, 113 and 276 Linux cooked.
    explicit CaptureWriter(const QString& path, quint32 linkType = 101)
        : file(path)
    {
        if (!file.open(QIODevice::WriteOnly)) {
            qFatal("cannot write the capture");
        }
        file.write(little(0xa1b2c3d4, 4) + little(2, 2) + little(4, 2) + little(0, 4) + little(0, 4) +
                   little(262144, 4) + little(linkType, 4));
    }

    /// One packet; `wireLength` tells how long it was before it was cut.
    void packet(qint64 timeUs, const QByteArray& octets, int wireLength = -1)
    {
        file.write(little(quint32(timeUs / 1000000), 4) + little(quint32(timeUs % 1000000), 4) +
                   little(quint32(octets.size()), 4) +
                   little(quint32(wireLength < 0 ? octets.size() : wireLength), 4) + octets);
        file.flush();
    }

    /// Octets of the file as they are.
    void raw(const QByteArray& octets)
    {
        file.write(octets);
        file.flush();
    }

    /// An IPv4 packet.
    static QByteArray ipv4(int protocol, const QByteArray& body, const char* source = "192.168.7.2",
                           const char* target = "192.168.7.255", quint16 fragment = 0)
    {
        return big(0x4500, 2) + big(quint32(20 + body.size()), 2) + big(0, 2) + big(fragment, 2) +
               big(0x4000 + quint32(protocol), 2) + big(0, 2) + address(source) + address(target) + body;
    }

    /// A UDP datagram with its header; `length` replaces the true one.
    static QByteArray udp(const QByteArray& payload, quint16 port = 9876, int length = -1)
    {
        return big(5000, 2) + big(port, 2) + big(quint32(length < 0 ? 8 + payload.size() : length), 2) +
               big(0, 2) + payload;
    }

    /// A TCP segment from port 80 or to it; flags: 2 SYN, 1 FIN.
    static QByteArray tcp(bool isAnswer, quint32 sequence, const QByteArray& payload, quint32 flags = 0x10,
                          quint16 clientPort = 40000)
    {
        const QByteArray header = big(isAnswer ? 80 : clientPort, 2) + big(isAnswer ? clientPort : 80, 2) +
                                  big(sequence, 4) + big(0, 4) + big(0x5000 + flags, 2) + big(1000, 2) +
                                  big(0, 4);
        return isAnswer ? ipv4(6, header + payload, "192.168.7.2", "192.168.7.10")
                        : ipv4(6, header + payload, "192.168.7.10", "192.168.7.2");
    }

    static QByteArray big(quint32 value, int width)
    {
        QByteArray octets = little(value, width);
        std::reverse(octets.begin(), octets.end());
        return octets;
    }

private:
    static QByteArray little(quint32 value, int width)
    {
        QByteArray octets(4, '\0');
        qToLittleEndian(value, octets.data());
        return octets.left(width);
    }

    static QByteArray address(const char* text)
    {
        return big(QHostAddress(QLatin1String(text)).toIPv4Address(), 4);
    }

    QFile file;
};
