// SPDX-License-Identifier: MIT
#include "framerecorder.h"

#include <QFile>
#include <QtDebug>
#include <QtEndian>

#include <cstdio>
#include <pcap/pcap.h>
#include <sys/time.h>

namespace Simulator {

namespace {

constexpr int largestPacket = 65535;

QByteArray bigEndian(quint32 value, int width)
{
    QByteArray octets(4, '\0');
    qToBigEndian(value, octets.data());
    return octets.right(width);
}

/// The checksum of an IPv4 header.
quint16 headerChecksum(const QByteArray& header)
{
    quint32 sum = 0;
    for (int i = 0; i + 1 < header.size(); i += 2) {
        sum += qFromBigEndian<quint16>(header.constData() + i);
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<quint16>(~(sum + (sum >> 16)));
}

QByteArray ipv4Header(int bodyLength, const QHostAddress& source, const QHostAddress& target)
{
    constexpr int headerLength = 20;
    QByteArray header = QByteArray::fromHex("4500") + bigEndian(quint32(headerLength + bodyLength), 2) +
                        QByteArray::fromHex("0000400040110000") + bigEndian(source.toIPv4Address(), 4) +
                        bigEndian(target.toIPv4Address(), 4);
    return header.replace(10, 2, bigEndian(headerChecksum(header), 2));
}

} // namespace

void FrameRecorder::Close::operator()(pcap* handle) const
{
    pcap_close(handle);
}

void FrameRecorder::Close::operator()(pcap_dumper* file) const
{
    pcap_dump_close(file);
}

FrameRecorder::FrameRecorder() = default;
FrameRecorder::~FrameRecorder() = default;

Varnel::Outcome<> FrameRecorder::open(const QString& path)
{
    name = path;
    format.reset(pcap_open_dead(DLT_RAW, largestPacket));
    dump.reset(pcap_dump_open(format.get(), QFile::encodeName(path).constData()));
    if (!dump) {
        return Varnel::Refusal(
            QStringLiteral("--record: %1").arg(QString::fromLocal8Bit(pcap_geterr(format.get()))));
    }
    return {};
}

void FrameRecorder::record(const QByteArray& octets, const QHostAddress& source, quint16 sourcePort,
                           const QHostAddress& target, quint16 targetPort)
{
    if (!dump) {
        return;
    }
    constexpr int udpHeaderLength = 8;
    const QByteArray udp = bigEndian(sourcePort, 2) + bigEndian(targetPort, 2) +
                           bigEndian(quint32(udpHeaderLength + octets.size()), 2) + bigEndian(0, 2) + octets;
    const QByteArray packet = ipv4Header(udp.size(), source, target) + udp;
    pcap_pkthdr header = {};
    gettimeofday(&header.ts, nullptr);
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    pcap_dump(reinterpret_cast<u_char*>(dump.get()), &header,
              reinterpret_cast<const u_char*>(packet.constData()));
    if (pcap_dump_flush(dump.get()) != 0) {
        qWarning().noquote() << QStringLiteral("cannot write the recording %1; it ends here").arg(name);
        dump.reset();
    }
}

} // namespace Simulator
