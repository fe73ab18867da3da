// SPDX-License-Identifier: MIT
#pragma once

#include "outcome.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>

#include <memory>

struct pcap;
struct pcap_dumper;

namespace Simulator {

/// Writes what is sent into a capture file (pcap, raw IPv4) that Wireshark, r7m-frame-check and --replay
/// read. Each datagram is in the file as soon as it is sent, even if the program crashes later.
class FrameRecorder
{
public:
    FrameRecorder();
    ~FrameRecorder();
    Q_DISABLE_COPY_MOVE(FrameRecorder)

    /// Creates or truncates the file.
    [[nodiscard]] Varnel::Outcome<> open(const QString& path);

    /// Adds one datagram, with the present time. A full disk ends the recording with one line in the log.
    void record(const QByteArray& octets, const QHostAddress& source, quint16 sourcePort,
                const QHostAddress& target, quint16 targetPort);

private:
    struct Close
    {
        void operator()(pcap* handle) const;
        void operator()(pcap_dumper* file) const;
    };

    std::unique_ptr<pcap, Close> format;
    std::unique_ptr<pcap_dumper, Close> dump;
    QString name;
};

} // namespace Simulator
