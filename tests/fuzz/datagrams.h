// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include <QByteArray>

#include "frame.h"
#include "harness.h"

namespace fuzz {

/// One thing that happens to the controller link.
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
    };

    Kind kind = FromFirst;
    bool overNetwork = false; ///< the datagram comes over the network, from 127.0.0.1
    QByteArray datagram;
};

/// Bits of an event's first octet, above its kind.
enum EventBits : quint8
{
    KindBits = 0x07,
    KeepsCoreLength = 0x08,
    KeepsSequence = 0x10,
    KeepsAll = 0x20,
    OverNetwork = 0x40,
    Longest = 0x80, ///< filled up with zeros to the longest datagram there is
};

constexpr int longestDatagram = 65507; // 65535 less the headers of IPv4 and UDP

/// Lets the Core section reach to the end of the frame, which has no checksum yet.
inline void stretchCore(QByteArray* octets)
{
    for (int at = 16; at + 4 <= octets->size();) {
        if (octets->mid(at, 2) == littleEndian16(Core)) {
            octets->replace(at + 2, 2, littleEndian16(static_cast<quint16>(octets->size() - at)));
            return;
        }
        at += qMax(4, quint8(octets->at(at + 2)) + 256 * quint8(octets->at(at + 3)));
    }
}

/// A frame from what follows its length field. Magic, version, length and checksum are right, and unless
/// `bits` say otherwise also the sequence number and the length of the Core section: the fuzzer could not
/// guess them.
inline QByteArray framed(const QByteArray& rest, quint32 sequence, int bits)
{
    QByteArray octets = hex("ce 01 0000") + rest;
    if ((bits & KeepsSequence) == 0 && octets.size() >= 12) {
        octets.replace(8, 4, littleEndian32(sequence));
    }
    if ((bits & KeepsCoreLength) == 0) {
        stretchCore(&octets);
    }
    if ((bits & Longest) != 0) {
        octets = octets.leftJustified(longestDatagram - 2, '\0', true);
    }
    if (octets.size() >= 8) {
        // At most 2047 sections: each costs lines in the log, and a section that says 65532 makes no step.
        octets[7] = static_cast<char>(quint8(octets[7]) & 7U);
    }
    octets.replace(2, 2, littleEndian16(static_cast<quint16>(octets.size() - 2)));
    return sealed(octets);
}

/// The events of an input: an octet with bits and kind, and the octets of the datagram, up to a separator.
inline std::vector<Event> readEvents(const uint8_t* data, size_t size)
{
    std::vector<Event> events;
    Input input(data, size);
    while (!input.isEmpty()) {
        const QByteArray octets = input.takeUntil("\360EVT");
        const quint8 bits = octets.isEmpty() ? 0 : quint8(octets[0]);
        const auto sequence = static_cast<quint32>(events.size() + 1);
        const QByteArray rest = octets.mid(1);
        events.push_back({static_cast<Event::Kind>(bits & KindBits), (bits & OverNetwork) != 0,
                          (bits & KeepsAll) != 0 ? rest : framed(rest, sequence, bits)});
    }
    return events;
}

} // namespace fuzz
