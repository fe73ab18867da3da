// SPDX-License-Identifier: MIT
#pragma once

#include <random>
#include <vector>

#include <QByteArray>

#include "frame.h"
#include "harness.h"

namespace fuzz {

/// One thing that happens to the controller link. The inputs of the fuzzer are a row of them, each an octet
/// (the kind), two octets (the length, little-endian) and the datagram.
struct Event
{
    enum Kind : quint8
    {
        FromFirst,  ///< a datagram from 192.168.7.2
        FromSecond, ///< from another address
        FromThird,
        FromLinkLocal, ///< from an IPv6 address with its scope
        PacketTimeout,
        BlinkFast,
        BlinkSlow,
        ScriptsChange, ///< the scripts come and go
        Kinds,
    };
    /// Bit of the kind octet: the datagram is filled up with zeros to the longest there is, and sealed.
    static constexpr quint8 grown = 0x80;
    /// Bit of the kind octet: the datagram comes over the network, from 127.0.0.1.
    static constexpr quint8 overNetwork = 0x40;

    quint8 kind = FromFirst;
    QByteArray datagram;

    [[nodiscard]] Kind what() const { return static_cast<Kind>(kind % Kinds); }
    [[nodiscard]] bool isDatagram() const { return what() <= FromLinkLocal; }
};

using Events = std::vector<Event>;

constexpr int longestDatagram = 65507; // 65535 less the headers of IPv4 and UDP

inline Events readEvents(const uint8_t* data, size_t size)
{
    Events events;
    Input input(data, size);
    while (!input.isEmpty()) {
        Event event;
        event.kind = input.u8();
        event.datagram = input.take(input.u16());
        events.push_back(event);
    }
    return events;
}

inline QByteArray writeEvents(const Events& events)
{
    QByteArray octets;
    for (const Event& event : events) {
        octets += char(event.kind);
        octets += littleEndian16(static_cast<quint16>(event.datagram.size()));
        octets += event.datagram;
    }
    return octets;
}

/// `datagram` at its greatest length, with length field and checksum to match. At most 255 sections are left:
/// of the sixteen thousand that fit, each with its lines in the log, one is like the other.
inline QByteArray grownDatagram(const QByteArray& datagram)
{
    QByteArray octets = datagram.leftJustified(longestDatagram - 2, '\0', true);
    octets.replace(2, 2, littleEndian16(longestDatagram - 4));
    return sealed(octets);
}

/// `datagram`, or when it is a good frame that counts thousands of sections, the same with fewer. Each costs
/// lines in the log, and one is like the other: a section that says 65532 makes no step, so that a short
/// frame may hold 65535.
inline QByteArray withFewerSections(const QByteArray& datagram)
{
    constexpr quint8 highest = 7;
    const QByteArray unsealed = datagram.chopped(qMin(2, datagram.size()));
    if (datagram.size() < 18 || quint8(datagram[7]) <= highest || sealed(unsealed) != datagram) {
        return datagram;
    }
    QByteArray octets = unsealed;
    octets[7] = static_cast<char>(quint8(octets[7]) & highest);
    return sealed(octets);
}

} // namespace fuzz
