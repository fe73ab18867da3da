// SPDX-License-Identifier: MIT
// The datagram fuzzer's own mutations: without them nearly every input would end at the checksum.
#include <cstring>

#include "datagrams.h"
#include "frame.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using fuzz::Event;
using fuzz::Events;

class Mutator
{
public:
    explicit Mutator(unsigned seed)
        : engine(seed)
    {
    }

    void mutate(Events* events)
    {
        if (events->empty()) {
            events->push_back({Event::FromFirst, Frame().add(anySection()).octets()});
        }
        switch (below(8)) {
        case 0:
            rearrange(events);
            break;
        case 1:
            any(events).kind = anyKind();
            break;
        case 2:
            events->insert(events->begin() + below(int(events->size()) + 1), newEvent());
            break;
        case 3:
        case 4:
            changeSections(&any(events).datagram);
            break;
        default:
            changeOctets(&any(events).datagram);
        }
        if (!oneIn(8)) {
            repair(events);
        }
    }

private:
    int below(int limit) { return int(engine() % unsigned(limit)); }
    bool oneIn(int count) { return below(count) == 0; }
    Event& any(Events* events) { return (*events)[size_t(below(int(events->size())))]; }

    QByteArray noise(int size)
    {
        QByteArray octets(size, '\0');
        for (char& octet : octets) {
            octet = static_cast<char>(oneIn(3) ? 0 : below(256));
        }
        return octets;
    }

    /// Codes of hashes and ciphers, known and unknown.
    QByteArray smallNumbers(int size)
    {
        QByteArray octets(size, '\0');
        for (char& octet : octets) {
            octet = static_cast<char>(below(4));
        }
        return octets;
    }

    quint8 anyKind()
    {
        return static_cast<quint8>(below(Event::Kinds) | (oneIn(6) ? Event::overNetwork : 0));
    }

    QByteArray anySection()
    {
        switch (below(8)) {
        case 0:
            return section(0x10, noise(24));
        case 1:
            return gpioSection(quint8(below(5)), quint8(below(5)), quint8(below(5)), quint8(below(5)));
        case 2:
            return section(0x30, noise(22));
        case 3:
            return snmpCfgSection(quint8(below(7)), quint8(below(7)))
                .replace(6, 3, smallNumbers(3))
                .replace(10, 2, smallNumbers(2));
        case 4:
            return section(0x60, noise(4));
        case 5:
            return section(quint16(below(0x100)), noise(below(32)), oneIn(2) ? below(65536) : -1);
        default:
            return section(0x80, items());
        }
    }

    QByteArray items()
    {
        QByteArray result;
        for (int count = below(5); count > 0; --count) {
            const int size = below(6);
            result +=
                coreItem(quint16(oneIn(6) ? below(65536) : 7), quint16(oneIn(6) ? below(9) : 3),
                         quint8(below(7)), quint8(below(12)), noise(size), oneIn(10) ? below(65536) : size);
        }
        return result;
    }

    Event newEvent()
    {
        if (oneIn(5)) {
            return {anyKind(), {}};
        }
        Frame frame;
        for (int count = 1 + below(4); count > 0; --count) {
            frame.add(anySection());
        }
        const int grown = oneIn(500) ? Event::grown : 0;
        return {static_cast<quint8>((oneIn(6) ? below(4) : 0) | (oneIn(8) ? Event::overNetwork : 0) | grown),
                frame.octets()};
    }

    void rearrange(Events* events)
    {
        const auto one = events->begin() + below(int(events->size()));
        if (oneIn(2)) {
            const Event copy = *one;
            events->insert(events->begin() + below(int(events->size()) + 1), copy);
        } else if (events->size() > 1) {
            events->erase(one);
        }
    }

    /// Appends a section, or puts one in at a place where another begins, and counts it.
    void changeSections(QByteArray* datagram)
    {
        if (datagram->size() < 18) {
            *datagram = Frame().octets();
        }
        QByteArray octets = datagram->chopped(2);
        QVector<int> starts{16};
        while (starts.last() + 4 < octets.size()) {
            const int at = starts.last();
            starts << at + qMax(4, quint8(octets[at + 2]) + 256 * quint8(octets[at + 3]));
        }
        const int at = qMin(octets.size(), starts.at(below(starts.size())));
        const int end = qMin(octets.size(), starts.value(starts.indexOf(at) + 1, at));
        const bool put = oneIn(2) || end <= at;
        octets.replace(at, put ? 0 : end - at, put ? anySection() : QByteArray());
        const int count = quint8(octets[6]) + (put ? 1 : -1);
        octets[6] = static_cast<char>(qBound(1, count, 255));
        *datagram = sealed(octets);
    }

    void changeOctets(QByteArray* datagram)
    {
        const int room = qMin(fuzz::longestDatagram, datagram->size() + 64);
        QByteArray octets = *datagram;
        octets.resize(room);
        const size_t size = LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(octets.data()),
                                             size_t(datagram->size()), size_t(room));
        octets.truncate(int(size));
        *datagram = octets;
    }

    /// Makes the frames pass the checks of their headers, mostly in the order of the sequence.
    void repair(Events* events)
    {
        quint32 sequence = 0;
        for (Event& event : *events) {
            QByteArray& octets = event.datagram;
            if (!event.isDatagram() || octets.size() < 18 || oneIn(16)) {
                continue;
            }
            octets.chop(2);
            octets[0] = char(0xCE);
            octets[1] = 1;
            octets.replace(2, 2, littleEndian16(static_cast<quint16>(octets.size() - 2)));
            if (!oneIn(16)) {
                octets.replace(4, 2, littleEndian16(14));
            }
            if (!oneIn(16)) {
                octets.replace(8, 4, littleEndian32(++sequence));
            }
            if (!oneIn(16)) {
                octets[12] = 1;
            }
            if (!oneIn(4)) {
                repairCore(&octets);
            }
            octets = sealed(octets);
        }
    }

    /// A Core section reaches to the end of its frame.
    static void repairCore(QByteArray* octets)
    {
        for (int at = 16; at + 4 <= octets->size();) {
            const int length = quint8(octets->at(at + 2)) + 256 * quint8(octets->at(at + 3));
            if (quint8(octets->at(at)) == 0x80 && octets->at(at + 1) == 0) {
                octets->replace(at + 2, 2, littleEndian16(static_cast<quint16>(octets->size() - at)));
                return;
            }
            at += qMax(4, length);
        }
    }

    std::minstd_rand engine;
};

size_t give(const QByteArray& octets, uint8_t* data, size_t maxSize)
{
    const size_t size = qMin(size_t(octets.size()), maxSize);
    std::memcpy(data, octets.constData(), size);
    return size;
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed)
{
    if (seed % 16 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    Events events = fuzz::readEvents(data, size);
    Mutator mutator(seed);
    for (unsigned count = 1 + seed / 16 % 4; count > 0; --count) {
        mutator.mutate(&events);
    }
    return give(fuzz::writeEvents(events), data, maxSize);
}

extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* data1, size_t size1, const uint8_t* data2,
                                            size_t size2, uint8_t* out, size_t maxOutSize, unsigned seed)
{
    const Events one = fuzz::readEvents(data1, size1);
    const Events other = fuzz::readEvents(data2, size2);
    Events events;
    std::minstd_rand engine(seed);
    for (size_t i = 0; i < qMax(one.size(), other.size()); ++i) {
        const Events& from = engine() % 2 == 0 ? one : other;
        if (i < from.size()) {
            events.push_back(from[i]);
        }
    }
    return give(fuzz::writeEvents(events), out, maxOutSize);
}
