// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>

#include "framereport.h"
#include "reportwriter.h"

/// The results of a run.
class Statistics
{
public:
    /// Counts any packet.
    void addPacket() { ++packets; }

    /// Counts a datagram and the panel's verdict on it.
    void addFrame(const FrameOrigin& origin, const FrameReport& report);

    /// Counts a packet for the panel that could not be checked, and why.
    void addUnreadable(const QString& reason);

    /// Counts a datagram to another port.
    void addForeignPort(quint16 port);

    void addLinkLoss() { ++linkLosses; }

    [[nodiscard]] qint64 frames() const { return accepted + dropped; }
    [[nodiscard]] qint64 unreadablePackets() const;

    /// True when the panel accepts and uses everything, and has not lost the link.
    [[nodiscard]] bool isFaultless() const { return dropped == 0 && refused == 0 && linkLosses == 0; }

    /// The other ports that got datagrams, with their numbers, as one line; empty when there are none.
    [[nodiscard]] QString foreignPorts() const;

    [[nodiscard]] QString asText() const;
    [[nodiscard]] QJsonObject asJson() const;

private:
    using Counts = QMap<QString, qint64>;

    static void count(Counts* counts, const QString& what);

    qint64 packets = 0;
    qint64 accepted = 0;
    qint64 dropped = 0;
    qint64 refused = 0; ///< accepted frames with a fault
    qint64 linkLosses = 0;
    qint64 restarts = 0;
    qint64 missing = 0; ///< sequence numbers that were skipped
    double lastAccepted = 0;
    double longestGap = 0;
    quint32 lastSequence = 0;
    Counts reasons;
    Counts sections;
    Counts senders;
    Counts targets;
    Counts unreadable;
    QMap<quint16, qint64> ports;
};
