// SPDX-License-Identifier: MIT
#include "framesource.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QDebug>

#include "frame.h"

namespace {

constexpr std::chrono::milliseconds step{1};
constexpr quint16 panelPort = 9876;
const char* const broadcastAddress = "192.168.7.255";

sockaddr_in socketAddress(const char* address, quint16 port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    ::inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

int openSocket(const QString& address)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    const sockaddr_in own = socketAddress(address.toLatin1().constData(), 0);
    if (::setsockopt(socket, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
        ::bind(socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        qWarning() << "Cannot send from" << address;
    }
    return socket;
}

/// A Core section's one item: class 1, field 3, index 0, an unsigned 32-bit number.
QByteArray uptimeItem(quint32 value)
{
    QByteArray item = hex("0100 0300 00 06 0400");
    for (int shift = 0; shift < 32; shift += 8) {
        item += static_cast<char>(value >> shift);
    }
    return item;
}

} // namespace

FrameSource::Maker FrameSource::frames(const char* language)
{
    return [language](quint32 sequence, quint32 value) {
        return Frame(sequence)
            .devInfo(language)
            .gpioState(1, 0, 0, 0)
            .section(Core, uptimeItem(value))
            .octets();
    };
}

QByteArray FrameSource::garbage(quint32 sequence, quint32 value)
{
    // Some begin like a frame, so that every check has its share.
    QByteArray octets = frames("en")(sequence, value);
    const auto which = static_cast<int>(value % 61U);
    for (int i = which % 3 == 0 ? 0 : 4 + which % 8; i < octets.size(); ++i) {
        octets[i] = static_cast<char>(value * 31U + static_cast<quint32>(i) * 17U);
    }
    return octets.left(octets.size() - which % 5);
}

FrameSource::FrameSource(const QString& address, Maker newMaker)
    : maker(std::move(newMaker))
    , socket(openSocket(address))
    , thread([this] { run(); })
{
}

FrameSource::~FrameSource()
{
    ending = true;
    thread.join();
    ::close(socket);
}

void FrameSource::run()
{
    while (!ending) {
        const Clock::time_point now = Clock::now();
        if (rate != currentRate) {
            currentRate = rate;
            since = now;
            sinceThen = 0;
        }
        sendDue(now);
        std::this_thread::sleep_until(now + step);
    }
}

void FrameSource::sendDue(Clock::time_point now)
{
    const double seconds = std::chrono::duration<double>(now - since).count();
    for (const auto due = static_cast<qint64>(seconds * currentRate); sinceThen < due; ++sinceThen) {
        sendOne();
    }
}

void FrameSource::sendOne()
{
    static const sockaddr_in panel = socketAddress(broadcastAddress, panelPort);
    const QByteArray datagram = maker(++sequence, total + 1);
    const auto taken = ::sendto(socket, datagram.constData(), static_cast<std::size_t>(datagram.size()), 0,
                                reinterpret_cast<const sockaddr*>(&panel), sizeof panel);
    ++(taken == datagram.size() ? total : failures);
}
