// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>

#include <QByteArray>
#include <QString>

#include "packetparser.h"

struct pcap;

/// One packet of a capture.
struct CapturedPacket
{
    qint64 number = 0; ///< from 1
    qint64 timeUs = 0; ///< microseconds since 1970
    PacketContent content;
};

/// Packets from a file (pcap or pcapng) or from a network interface, one by one: no file is loaded into
/// memory.
class Capture
{
public:
    Capture();
    ~Capture();
    Q_DISABLE_COPY_MOVE(Capture)

    /// Opens a file. Returns an empty text, or why it cannot be read.
    [[nodiscard]] QString openFile(const QString& path);

    /// Opens an interface for the UDP datagrams to `port`. Returns an empty text, or why not.
    [[nodiscard]] QString openInterface(const QString& name, quint16 port);

    /// The next packet; nothing at the end, when an interface has none, or when the rest cannot be read.
    [[nodiscard]] std::optional<CapturedPacket> next();

    /// Why reading stopped before the end; empty when it did not.
    [[nodiscard]] QString error() const { return problem; }

    /// A descriptor that is readable when packets wait on the interface.
    [[nodiscard]] int descriptor() const;

    /// Bytes of the file read so far.
    [[nodiscard]] qint64 position() const;

private:
    struct Close
    {
        void operator()(pcap* handle) const;
    };

    [[nodiscard]] QString checkLinkType() const;

    std::unique_ptr<pcap, Close> handle;
    qint64 packets = 0;
    QString problem;
};
