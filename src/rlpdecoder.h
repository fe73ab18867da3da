// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QByteArray>
#include <QHostAddress>
#include <QList>

#include "rlprecords.h"

namespace Varnel {

/// The kinds of section that a frame may carry; the value is the section type on the wire.
enum class SectionType : quint16
{
    DevInfo = 0x10,
    GpioState = 0x20,
    NetCfg = 0x30,
    SnmpCfg = 0x40,
    ModbusCfg = 0x60,
    Core = 0x80,
};

/// The contents of one accepted frame: a record of each kind, valid only where its flag is set. The items of
/// a Core section are in the decoder's item list. The two large records, which few frames carry, are made
/// when their section is found: their addresses would cost every frame ten allocations.
struct RlpFrame
{
    quint32 seqno = 0;
    devinfo_s devinfo;
    gpiostate_s gpiostate;
    std::optional<netcfg_s> netcfg;
    std::optional<snmpcfg_s> snmpcfg;
    modbuscfg_s modbuscfg;
    bool hasDevInfo = false;
    bool hasGpioState = false;
    bool hasNetCfg = false;
    bool hasSnmpCfg = false;
    bool hasModbusCfg = false;
    bool hasCore = false;
};

/// One section after the walk.
struct WalkedSection
{
    int position = 0; ///< of its first octet in the frame
    quint16 type = 0;
    quint16 length = 0;  ///< as its header says
    quint16 advance = 0; ///< octets from here to what is taken for the next section
    bool decoded = false;
};

/// Checks RLP frames and decodes their sections into records. It needs no window, runs no script and touches
/// nothing outside itself; every read is checked against what was received.
class RlpDecoder
{
public:
    RlpDecoder() = default;
    virtual ~RlpDecoder() = default;
    Q_DISABLE_COPY_MOVE(RlpDecoder)

    /// The header of a frame that has passed all checks.
    struct Header
    {
        quint16 payloadLength = 0;
        quint16 sectionOffset = 0;
        quint16 sectionCount = 0;
        quint32 seqno = 0;
    };

    /// Makes every check of a received datagram from `sender`, in the order in which the controller's
    /// firmware expects them, logging the reason of the first that fails. Returns false, and changes nothing,
    /// when the frame is to be dropped. An accepted frame loses its two checksum octets.
    [[nodiscard]] bool checkFrame(QByteArray* data, const QHostAddress& sender, Header* header) const;

    /// Decodes the sections of an accepted frame, one by one; a bad or unknown section is logged and skipped.
    void walkSections(const QByteArray& data, const Header& header, RlpFrame* frame);

    /// `len` octets from `offset` in reverse order: the last octet on the wire comes first. Cut to what is
    /// there.
    static QByteArray getBytes(QByteArray* data, quint16 offset, quint16 len);
    /// The same octets in wire order; the two names are what the protocol's documents call them.
    static QByteArray getBytesReverse(QByteArray* data, quint16 offset, quint16 len);

    /// Section decoders. `payload` is what the walker cut out of the frame for this section, header included;
    /// `record` points at the record of the decoder's kind (for Core: the item list); `consumed` receives the
    /// number of octets to advance by, on success alone. False, with the reason in the log, leaves the
    /// section unapplied.
    bool handleSectionDevInfo(quint16 type, quint16 length, QByteArray* payload, void* record, int* consumed);
    bool handleSectionGpioState(quint16 type, quint16 length, QByteArray* payload, void* record,
                                int* consumed);
    bool handleSectionNetCfg(quint16 type, quint16 length, QByteArray* payload, void* record, int* consumed);
    bool handleSectionSnmpCfg(quint16 type, quint16 length, QByteArray* payload, void* record, int* consumed);
    bool handleSectionModbusCfg(quint16 type, quint16 length, QByteArray* payload, void* record,
                                int* consumed);
    bool handleSectionCore(quint16 type, quint16 length, QByteArray* payload, void* record, int* consumed);

    /// The items of the last Core section.
    const QList<core_tmp>& items() const { return m_itemList; }

protected:
    /// Called after each section of a walk, with the records as they then are; for programs that show a
    /// frame.
    virtual void sectionWalked(const WalkedSection& section, const RlpFrame& frame)
    {
        Q_UNUSED(section)
        Q_UNUSED(frame)
    }

    quint32 lastSeqno =
        0; ///< sequence number of the last accepted frame; 0 when none since start or link loss
    bool hasPacketSender =
        false;                 ///< true while a controller is registered; frames of others are then dropped
    QHostAddress packetSender; ///< the registered controller
    QList<core_tmp> m_itemList;
};

} // namespace Varnel
