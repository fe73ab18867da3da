// SPDX-License-Identifier: MIT
#include "rlpdecoder.h"

#include <algorithm>
#include <optional>

#include <QtDebug>

#include "crc16.h"
#include "fieldreader.h"
#include "sectionkinds.h"

namespace Varnel {

namespace {

constexpr quint8 rlpMagic = 0xCE;
constexpr quint8 rlpVersion = 1;
constexpr quint16 crcPoly = 0x1021;
constexpr quint16 crcInit = 0;
constexpr int crcSize = 2;

/// Octets that the payload length does not count: magic and version.
constexpr int payloadAt = 2;
/// The smallest section offset: payload length to section count.
constexpr int smallestSectionOffset = 8;
/// Octets of the payload that do not belong to sections: payload length to continuity word.
constexpr int payloadHeaderSize = 14;
constexpr int sectionHeaderSize = 4;

bool checkMagic(const QByteArray& data)
{
    if (data.isEmpty() || quint8(data.at(0)) != rlpMagic) {
        qDebug() << "Not a RLP magic number. Drop frame";
        return false;
    }
    return true;
}

bool checkCrc(const QByteArray& data)
{
    const int covered = data.size() < crcSize ? data.size() : data.size() - crcSize;
    const quint16 received = FieldReader(data).u16(data.size() - crcSize);
    const quint16 computed = crc16(crcPoly, crcInit, reinterpret_cast<const uchar*>(data.constData()),
                                   static_cast<quint16>(covered));
    if (received != computed || data.size() < crcSize) {
        qDebug() << "Invalid checksum (0x" << QString::number(received, 16) << " != 0x"
                 << QString::number(computed, 16) << "). Drop frame";
        return false;
    }
    return true;
}

bool checkVersion(const QByteArray& data)
{
    if (FieldReader(data).u8(1) != rlpVersion) {
        qDebug() << "Unknown RLP version";
        return false;
    }
    return true;
}

bool checkPayloadLength(const QByteArray& data, quint16 payloadLength)
{
    if (payloadLength != data.size() - payloadAt) {
        qDebug() << "Payload length mismatch. Drop frame";
        qDebug() << payloadLength;
        return false;
    }
    return true;
}

bool checkSectionOffset(quint16 offset, quint16 payloadLength)
{
    if (offset < smallestSectionOffset || offset > payloadLength) {
        qDebug() << "Section offset out of range. Drop frame";
        qDebug() << offset << " < " << smallestSectionOffset;
        qDebug() << offset << " > " << payloadLength;
        return false;
    }
    return true;
}

bool checkSectionCount(quint16 count, quint16 payloadLength)
{
    if (count != 0) {
        return true;
    }
    if (payloadLength > smallestSectionOffset) {
        qDebug() << "Section count mismatch section payload length. Drop frame";
        qDebug() << count << " : " << payloadLength;
    } else {
        qDebug() << "No section to process. Drop frame";
        qDebug() << count;
    }
    return false;
}

bool checkContinuity(quint32 continuity)
{
    if (continuity == 0) {
        qDebug() << "Out of the continuum. Drop frame";
        return false;
    }
    return true;
}

bool checkSequence(quint32 seqno, quint32 lastSeqno)
{
    if (seqno == lastSeqno) {
        qDebug() << "Repeated packet. Drop frame"
                 << "(" << seqno << " = " << lastSeqno << ")";
        return false;
    }
    if (lastSeqno > seqno) {
        // A rebooted controller counts from the start again; its frames are accepted.
        qDebug() << "Back in the sequence, probable reboot of the RxM"
                 << "(" << seqno << " < " << lastSeqno << ")";
    }
    return true;
}

/// One section as the walker sees it.
struct Section
{
    quint16 type = 0;
    quint16 length = 0;
    quint16 advance = 0; ///< octets for the decoder and up to the next section; wraps as in the controller
    const SectionKind* kind = nullptr;
    bool skip = false;
    bool wrongLength = false;
};

/// Reads the section header at `position`, which is inside `data`, and decides how to treat the section.
Section readSection(const QByteArray& data, quint16 position, quint16 budget)
{
    FieldReader reader(data);
    Section section;
    section.type = reader.u16(position);
    section.length = reader.u16(position + 2);
    if (section.length > budget) {
        qDebug() << "Section length exceed frame length. Skip section";
        section.skip = true;
    }
    section.kind = findSectionKind(section.type);
    section.advance = static_cast<quint16>(section.length + sectionHeaderSize);
    if (section.kind == nullptr) {
        qDebug() << "Unknown section type. Skip section";
        section.skip = true;
    } else if (section.kind->size == 0) {
        section.advance = budget;
    } else if (section.length == section.kind->size) {
        section.advance = section.kind->size;
    } else {
        qDebug() << section.kind->mismatchWords << section.kind->size << ")";
        section.wrongLength = true;
    }
    return section;
}

/// The octets for the section's decoder. A section of the wrong length gets four more than its header says,
/// so that its decoder refuses it even at the end of a frame.
QByteArray cutOut(const QByteArray& data, quint16 position, const Section& section)
{
    const QByteArray octets = data.mid(position, section.advance);
    return section.wrongLength ? octets.leftJustified(section.advance, '\0') : octets;
}

} // namespace

QByteArray RlpDecoder::getBytes(QByteArray* data, quint16 offset, quint16 len)
{
    QByteArray octets = getBytesReverse(data, offset, len);
    std::reverse(octets.begin(), octets.end());
    return octets;
}

QByteArray RlpDecoder::getBytesReverse(QByteArray* data, quint16 offset, quint16 len)
{
    return data->mid(offset, len);
}

bool RlpDecoder::checkFrame(QByteArray* data, const QHostAddress& sender, Header* header) const
{
    if (!checkMagic(*data)) {
        return false;
    }
    if (hasPacketSender && sender != packetSender) {
        qDebug() << "Packet received from an unknown sender (" << sender.toString() << ", attended "
                 << packetSender.toString() << ")";
        return false;
    }
    if (!checkCrc(*data)) {
        return false;
    }
    data->chop(crcSize); // all later sizes exclude the checksum
    if (!checkVersion(*data)) {
        return false;
    }
    FieldReader reader(*data);
    header->payloadLength = reader.u16(2);
    header->sectionOffset = reader.u16(4);
    header->sectionCount = reader.u16(6);
    header->seqno = reader.u32(8);
    const quint32 continuity = reader.u32(12);
    return checkPayloadLength(*data, header->payloadLength) &&
           checkSectionOffset(header->sectionOffset, header->payloadLength) &&
           checkSectionCount(header->sectionCount, header->payloadLength) && checkContinuity(continuity) &&
           checkSequence(header->seqno, lastSeqno);
}

void RlpDecoder::walkSections(const QByteArray& data, const Header& header, RlpFrame* frame)
{
    // Budget and position are 16 bits wide and wrap, as in the controller's own walker. A frame that was
    // accepted is at least as long as its header, so the budget starts at 0 or above.
    auto budget = static_cast<quint16>(header.payloadLength - payloadHeaderSize);
    auto position = static_cast<quint16>(header.sectionOffset + payloadAt);
    std::optional<int> lastConsumed;
    frame->seqno = header.seqno;

    for (quint16 count = header.sectionCount; count != 0; --count) {
        if (budget < sectionHeaderSize || position > data.size() - sectionHeaderSize) {
            qDebug() << "Payload too short. Drop remaining bytes";
            break;
        }
        Section section = readSection(data, position, budget);
        bool decoded = false;
        if (!section.skip) {
            QByteArray payload = cutOut(data, position, section);
            int consumed = 0;
            decoded = (this->*section.kind->decode)(section.type, section.length, &payload,
                                                    section.kind->record(frame, &m_itemList), &consumed);
            frame->*section.kind->decoded = decoded;
            if (decoded) {
                lastConsumed = consumed;
            }
            // A decoder that failed leaves the count of the last one that succeeded.
            section.advance = static_cast<quint16>(lastConsumed.value_or(section.length + sectionHeaderSize));
        }
        if (section.kind == nullptr || !(frame->*section.kind->decoded)) {
            qDebug() << "Decode error";
        }
        sectionWalked({position, section.type, section.length, section.advance, decoded}, *frame);
        budget = static_cast<quint16>(budget - section.advance);
        position = static_cast<quint16>(position + section.advance);
    }
}

} // namespace Varnel
