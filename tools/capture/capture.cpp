// SPDX-License-Identifier: MIT
#include "capture.h"

#include <cstdio>

#include <QFile>

#include <pcap/pcap.h>

namespace {

constexpr int largestPacket = 262144;
constexpr int liveTimeoutMs = 100;

QString fromPcap(const char* text)
{
    return QString::fromLocal8Bit(text);
}

} // namespace

void Capture::Close::operator()(pcap* handle) const
{
    pcap_close(handle);
}

Capture::Capture() = default;
Capture::~Capture() = default;

QString Capture::openFile(const QString& path)
{
    char text[PCAP_ERRBUF_SIZE] = "";
    handle.reset(pcap_open_offline(QFile::encodeName(path).constData(), text));
    packets = 0;
    problem.clear();
    return handle ? checkLinkType() : fromPcap(text);
}

QString Capture::openInterface(const QString& name, quint16 port)
{
    char text[PCAP_ERRBUF_SIZE] = "";
    handle.reset(pcap_open_live(name.toLocal8Bit().constData(), largestPacket, 0, liveTimeoutMs, text));
    packets = 0;
    problem.clear();
    if (!handle) {
        return fromPcap(text);
    }
    bpf_program filter = {};
    const QByteArray expression = port == 0 ? QByteArray("udp")
                                            : QByteArray("udp dst port %1 or (ip[6:2] & 0x1fff != 0 and udp)")
                                                  .replace("%1", QByteArray::number(port));
    if (pcap_compile(handle.get(), &filter, expression.constData(), 1, PCAP_NETMASK_UNKNOWN) != 0) {
        return fromPcap(pcap_geterr(handle.get()));
    }
    const int set = pcap_setfilter(handle.get(), &filter);
    pcap_freecode(&filter);
    if (set != 0 || pcap_setnonblock(handle.get(), 1, text) != 0) {
        return fromPcap(pcap_geterr(handle.get()));
    }
    return checkLinkType();
}

QString Capture::checkLinkType() const
{
    const int linkType = pcap_datalink(handle.get());
    if (isKnownLinkType(linkType)) {
        return {};
    }
    const char* const name = pcap_datalink_val_to_name(linkType);
    return QStringLiteral("packets of link type %1 cannot be read here")
        .arg(name != nullptr ? fromPcap(name) : QString::number(linkType));
}

std::optional<CapturedPacket> Capture::next()
{
    pcap_pkthdr* header = nullptr;
    const u_char* octets = nullptr;
    const int result = pcap_next_ex(handle.get(), &header, &octets);
    if (result != 1) {
        if (result == PCAP_ERROR) {
            problem = fromPcap(pcap_geterr(handle.get()));
        }
        return std::nullopt;
    }
    constexpr qint64 usPerSecond = 1000000;
    const auto packet =
        QByteArray::fromRawData(reinterpret_cast<const char*>(octets), static_cast<int>(header->caplen));
    return CapturedPacket{++packets, qint64(header->ts.tv_sec) * usPerSecond + qint64(header->ts.tv_usec),
                          parsePacket(pcap_datalink(handle.get()), packet)};
}

int Capture::descriptor() const
{
    return pcap_get_selectable_fd(handle.get());
}

qint64 Capture::position() const
{
    std::FILE* const file = pcap_file(handle.get());
    return file != nullptr ? qint64(ftello(file)) : 0;
}
