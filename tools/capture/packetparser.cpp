// SPDX-License-Identifier: MIT
#include "packetparser.h"

#include <algorithm>
#include <iterator>

#include <QtEndian>

#include <pcap/pcap.h>

namespace {

constexpr int typeIpv4 = 0x0800;
constexpr int typeIpv6 = 0x86DD;
constexpr int vlanTypes[] = {0x8100, 0x88A8, 0x9100};
constexpr int vlanTagSize = 4;
constexpr int mostVlanTags = 4;

constexpr int protocolTcp = 6;
constexpr int protocolUdp = 17;

constexpr int ipv4HeaderSize = 20;
constexpr int ipv6HeaderSize = 40;
constexpr int udpHeaderSize = 8;
constexpr int tcpHeaderSize = 20;

/// Where the packet after a link header begins, and what kind it is.
struct LinkHeader
{
    int linkType;
    int size;
    int typeAt; ///< of the two octets that name the protocol; -1: the first half octet of the packet does
};

constexpr LinkHeader linkHeaders[] = {
    {DLT_EN10MB, 14, 12}, {DLT_LINUX_SLL, 16, 14}, {DLT_LINUX_SLL2, 20, 0}, {DLT_RAW, 0, -1},
    {DLT_IPV4, 0, -1},    {DLT_NULL, 4, -1},       {DLT_LOOP, 4, -1},
};

const LinkHeader* findLink(int linkType)
{
    const auto* const link =
        std::find_if(std::begin(linkHeaders), std::end(linkHeaders),
                     [linkType](const LinkHeader& one) { return one.linkType == linkType; });
    return link == std::end(linkHeaders) ? nullptr : link;
}

/// Octets in network order; a read beyond the end gives -1.
int octet(const QByteArray& octets, int at)
{
    return at >= 0 && at < octets.size() ? quint8(octets.at(at)) : -1;
}

int word(const QByteArray& octets, int at)
{
    return at >= 0 && at + 2 <= octets.size() ? qFromBigEndian<quint16>(octets.constData() + at) : -1;
}

quint32 number(const QByteArray& octets, int at)
{
    return at >= 0 && at + 4 <= octets.size() ? qFromBigEndian<quint32>(octets.constData() + at) : 0;
}

/// An IPv4 packet with a complete header.
struct Ipv4Packet
{
    QByteArray body;
    int bodyLength = 0; ///< from the header; the capture may have cut the body
    QHostAddress source;
    QHostAddress target;
};

Endpoints endpoints(const Ipv4Packet& packet)
{
    return {packet.source, packet.target, quint16(std::max(0, word(packet.body, 0))),
            quint16(std::max(0, word(packet.body, 2)))};
}

PacketContent parseUdp(const Ipv4Packet& packet)
{
    const QByteArray& body = packet.body;
    if (body.size() < udpHeaderSize) {
        return Unreadable{QStringLiteral("the UDP header is cut off"), std::nullopt};
    }
    const Endpoints ends = endpoints(packet);
    const int length = word(body, 4);
    if (length < udpHeaderSize || length > packet.bodyLength) {
        return Unreadable{
            QStringLiteral("the UDP header says %1 octets, the packet has %2; no receiver gets it")
                .arg(length)
                .arg(packet.bodyLength),
            ends.targetPort};
    }
    if (length > body.size()) {
        return Unreadable{QStringLiteral("only %1 of %2 octets were captured")
                              .arg(body.size() - udpHeaderSize)
                              .arg(length - udpHeaderSize),
                          ends.targetPort};
    }
    return Datagram{ends, body.mid(udpHeaderSize, length - udpHeaderSize)};
}

PacketContent parseTcp(const Ipv4Packet& packet)
{
    const QByteArray& body = packet.body;
    const int header = (octet(body, 12) >> 4) * 4;
    if (body.size() < tcpHeaderSize || header < tcpHeaderSize || header > body.size()) {
        return {};
    }
    const int flags = octet(body, 13);
    return Segment{endpoints(packet), number(body, 4), (flags & 0x02) != 0, (flags & 0x05) != 0,
                   body.mid(header)};
}

PacketContent parseFragment(const Ipv4Packet& packet, int offset)
{
    const QString text =
        QStringLiteral("an IPv4 fragment (octets %1 to %2): fragments are not put together here");
    std::optional<quint16> port;
    if (offset == 0 && packet.body.size() >= udpHeaderSize) {
        port = endpoints(packet).targetPort;
    }
    return Unreadable{text.arg(offset).arg(offset + packet.bodyLength - 1), port};
}

PacketContent parseIpv4(const QByteArray& octets)
{
    const int header = (octet(octets, 0) & 0x0F) * 4;
    int length = word(octets, 2);
    const int protocol = octet(octets, 9);
    if (octets.size() < ipv4HeaderSize || header < ipv4HeaderSize || header > octets.size() ||
        (protocol != protocolUdp && protocol != protocolTcp)) {
        return {};
    }
    length = length == 0 ? octets.size() : length; // the captured sender left it to its network card
    if (length < header) {
        return {};
    }
    const Ipv4Packet packet{octets.mid(header, length - header), length - header,
                            QHostAddress(number(octets, 12)), QHostAddress(number(octets, 16))};
    constexpr int moreFragments = 0x2000;
    constexpr int offsetMask = 0x1FFF;
    const int fragment = word(octets, 6);
    if ((fragment & (moreFragments | offsetMask)) != 0) {
        return protocol == protocolUdp ? parseFragment(packet, (fragment & offsetMask) * 8) : PacketContent();
    }
    return protocol == protocolUdp ? parseUdp(packet) : parseTcp(packet);
}

PacketContent parseIpv6(const QByteArray& octets)
{
    if (octets.size() < ipv6HeaderSize + udpHeaderSize || octet(octets, 6) != protocolUdp) {
        return {};
    }
    return Unreadable{QStringLiteral("sent over IPv6: the panel listens on IPv4"),
                      quint16(word(octets, ipv6HeaderSize + 2))};
}

} // namespace

bool isKnownLinkType(int linkType)
{
    return findLink(linkType) != nullptr;
}

PacketContent parsePacket(int linkType, const QByteArray& octets)
{
    const LinkHeader* const link = findLink(linkType);
    if (link == nullptr || octets.size() < link->size) {
        return {};
    }
    int at = link->size;
    int type = word(octets, link->typeAt);
    for (int tags = 0;
         tags < mostVlanTags && std::count(std::begin(vlanTypes), std::end(vlanTypes), type) > 0; ++tags) {
        type = word(octets, at + 2);
        at += vlanTagSize;
    }
    if (link->typeAt < 0) {
        type = octet(octets, at) >> 4 == 4 ? typeIpv4 : typeIpv6;
    }
    const QByteArray packet = octets.mid(at);
    if (type == typeIpv4 && octet(packet, 0) >> 4 == 4) {
        return parseIpv4(packet);
    }
    if (type == typeIpv6 && octet(packet, 0) >> 4 == 6) {
        return parseIpv6(packet);
    }
    return {};
}
