// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <variant>

#include <QByteArray>
#include <QHostAddress>
#include <QString>

/// The two ends of a datagram or segment.
struct Endpoints
{
    QHostAddress source;
    QHostAddress target;
    quint16 sourcePort = 0;
    quint16 targetPort = 0;
};

/// One UDP datagram as its receiver gets it.
struct Datagram
{
    Endpoints ends;
    QByteArray payload;
};

/// One TCP segment.
struct Segment
{
    Endpoints ends;
    quint32 sequence = 0; ///< of the payload's first octet
    bool opens = false;   ///< SYN: the payload begins one octet later
    bool closes = false;  ///< FIN or RST
    QByteArray payload;
};

/// A packet that carries UDP, but no datagram that could be read, and why.
struct Unreadable
{
    QString reason;
    std::optional<quint16> targetPort; ///< as far as it is known
};

/// The contents of a packet; nothing if it is neither UDP nor TCP over IP.
using PacketContent = std::variant<std::monostate, Datagram, Segment, Unreadable>;

/// True for the link types that parsePacket() reads.
[[nodiscard]] bool isKnownLinkType(int linkType);

/// Reads one captured packet of the libpcap link type: Ethernet with VLAN tags, Linux cooked (both versions),
/// raw IP and BSD loopback. A capture may have cut its end.
[[nodiscard]] PacketContent parsePacket(int linkType, const QByteArray& octets);
