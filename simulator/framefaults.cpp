// SPDX-License-Identifier: MIT
#include "framefaults.h"

#include "wirelayout.h"

#include <QRandomGenerator>

namespace Simulator {

namespace {

constexpr int largestDatagram = 65507; // 65535 less IPv4 and UDP headers
constexpr quint16 unknownType = 0x50;

QByteArray garbage(int size)
{
    QRandomGenerator generator(static_cast<quint32>(size)); // the same octets on every run
    QByteArray octets;
    for (int i = 0; i < size; ++i) {
        octets.append(static_cast<char>(generator.bounded(256)));
    }
    return octets;
}

QByteArray withWrongGpioLength(FrameParts& parts)
{
    parts.sections.prepend(encodeSection(0x20, QByteArray(4, '\1'), 9));
    return encodeFrame(parts);
}

QByteArray withCoreFirst(FrameParts& parts)
{
    const QByteArray item = littleEndian(1, 2) + littleEndian(1, 2) + littleEndian(0, 1) +
                            littleEndian(1, 1) + littleEndian(1, 2) + littleEndian(1, 1);
    parts.sections.prepend(encodeSection(coreSectionType, item));
    return encodeFrame(parts);
}

QByteArray withCoreOverrun(FrameParts& parts)
{
    const QByteArray item = littleEndian(1, 2) + littleEndian(1, 2) + littleEndian(0, 1) +
                            littleEndian(1, 1) + littleEndian(5000, 2) + littleEndian(0x11223344, 4);
    parts.sections = {encodeSection(coreSectionType, item)};
    return encodeFrame(parts);
}

QByteArray oversized(FrameParts& parts)
{
    const int padding = largestDatagram - encodeFrame(parts).size() - sectionHeaderLength;
    parts.sections.prepend(encodeSection(unknownType, QByteArray(padding, '\0')));
    return encodeFrame(parts);
}

std::vector<FrameFault> buildFaults()
{
    return {
        {"crc", "checksum with one bit inverted",
         [](FrameParts& parts) {
             parts.crcXor = 1;
             return encodeFrame(parts);
         }},
        {"magic", "first octet 0xCD",
         [](FrameParts& parts) {
             parts.magic = 0xCD;
             return encodeFrame(parts);
         }},
        {"version", "protocol version 2",
         [](FrameParts& parts) {
             parts.version = 2;
             return encodeFrame(parts);
         }},
        {"payload-length", "payload length one too large",
         [](FrameParts& parts) {
             parts.payloadLength = static_cast<quint16>(encodeFrame(parts).size() - 3);
             return encodeFrame(parts);
         }},
        {"offset-low", "section offset 7",
         [](FrameParts& parts) {
             parts.sectionOffset = 7;
             return encodeFrame(parts);
         }},
        {"offset-high", "section offset past the payload",
         [](FrameParts& parts) {
             parts.sectionOffset = static_cast<quint16>(encodeFrame(parts).size());
             return encodeFrame(parts);
         }},
        {"zero-sections", "sections present, but their number given as 0",
         [](FrameParts& parts) {
             parts.sectionCount = 0;
             return encodeFrame(parts);
         }},
        {"no-sections", "a header and a checksum, nothing between",
         [](FrameParts& parts) {
             parts.sections.clear();
             return encodeFrame(parts);
         }},
        {"many-sections", "number of sections one too large",
         [](FrameParts& parts) {
             parts.sectionCount = static_cast<quint16>(parts.sections.size() + 1);
             return encodeFrame(parts);
         }},
        {"continuity", "continuity word 0",
         [](FrameParts& parts) {
             parts.continuity = 0;
             return encodeFrame(parts);
         }},
        {"sequence-zero", "sequence number 0",
         [](FrameParts& parts) {
             parts.sequence = 0;
             return encodeFrame(parts);
         }},
        {"unknown-section", "a section of type 0x50 before the others",
         [](FrameParts& parts) {
             parts.sections.prepend(encodeSection(unknownType, QByteArray(2, '\0')));
             return encodeFrame(parts);
         }},
        {"section-length", "a GpioState section that claims 9 octets before the others", withWrongGpioLength},
        {"section-overrun", "a section longer than the frame before the others",
         [](FrameParts& parts) {
             parts.sections.prepend(encodeSection(0x20, QByteArray(4, '\1'), 60000));
             return encodeFrame(parts);
         }},
        {"core-first", "a Core section before the others, where its end is not recognisable", withCoreFirst},
        {"core-overrun", "a Core item that claims more octets than its section has", withCoreOverrun},
        {"truncated", "only the first half of the frame",
         [](FrameParts& parts) {
             const QByteArray frame = encodeFrame(parts);
             return frame.left(frame.size() / 2);
         }},
        {"oversized", "65507 octets, the largest datagram: an unknown section before the others fills it",
         oversized},
        {"tiny", "only the first 3 octets", [](FrameParts& parts) { return encodeFrame(parts).left(3); }},
        {"empty", "a datagram without any octet", [](FrameParts&) { return QByteArray(); }},
        {"garbage", "200 random octets", [](FrameParts&) { return garbage(200); }},
    };
}

} // namespace

const std::vector<FrameFault>& frameFaults()
{
    static const std::vector<FrameFault> faults = buildFaults();
    return faults;
}

const FrameFault* findFrameFault(const QString& name)
{
    for (const FrameFault& fault : frameFaults()) {
        if (name == QLatin1String(fault.name)) {
            return &fault;
        }
    }
    return nullptr;
}

} // namespace Simulator
