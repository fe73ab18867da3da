// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <tuple>

#include <QHostAddress>
#include <QUdpSocket>

#include "frame.h"
#include "modbusbench.h"

/// A controller that sends frames at a steady rate from a thread of its own, whatever the test waits for
/// meanwhile. Each frame carries the number of frames sent so far in the Core item that the sample mapping
/// puts at register 102.
class FrameSource
{
    Q_DISABLE_COPY_MOVE(FrameSource)

public:
    /// Makes the datagram with this sequence number and this value for the Core item.
    using Maker = std::function<QByteArray(quint32 sequence, quint32 value)>;

    /// A frame as a controller sends it.
    static QByteArray frame(quint32 sequence, quint32 value)
    {
        return Frame(sequence)
            .devInfo("en")
            .gpioState(1, 0, 0, 0)
            .section(Core, coreItem(1, 3, 0, 6, littleEndian32(value)))
            .octets();
    }

    /// Octets of any kind, of a frame's length. Some begin like a frame, so that every check has its share.
    static QByteArray garbage(quint32 sequence, quint32 value)
    {
        QByteArray octets = frame(sequence, value);
        const auto which = static_cast<int>(value % 61U);
        for (int i = which % 3 == 0 ? 0 : 4 + which % 8; i < octets.size(); ++i) {
            octets[i] = static_cast<char>(value * 31U + static_cast<quint32>(i) * 17U);
        }
        return octets.left(octets.size() - which % 5);
    }

    /// Silent at first. `address` is one of this host's.
    explicit FrameSource(const QString& address, const Maker& maker = &frame)
        : thread([=] { run(QHostAddress(address), maker); })
    {
    }

    ~FrameSource()
    {
        ending = true;
        thread.join();
    }

    /// Sends this number of datagrams a second from now on; 0 is silence.
    void setRate(int perSecond) { rate = perSecond; }
    /// The next frame has number 1, as after a start of the controller.
    void restartNumbers() { sequence = 0; }
    /// How many datagrams the kernel has taken so far: the value in the latest.
    quint32 sent() const { return total; }
    /// How many it has refused.
    quint32 refused() const { return failures; }

private:
    void run(const QHostAddress& address, const Maker& maker)
    {
        using Clock = std::chrono::steady_clock;
        const QHostAddress panel(QStringLiteral("192.168.7.255"));
        QUdpSocket socket;
        socket.bind(address);
        Clock::time_point since;
        qint64 sinceThen = 0;
        for (int currentRate = 0; !ending;) {
            const Clock::time_point now = Clock::now();
            if (const int wanted = rate; wanted != currentRate) {
                currentRate = wanted;
                since = now;
                sinceThen = 0;
            }
            const double seconds = std::chrono::duration<double>(now - since).count();
            for (const auto due = static_cast<qint64>(seconds * currentRate); sinceThen < due; ++sinceThen) {
                const QByteArray datagram = maker(++sequence, total + 1);
                const bool taken = socket.writeDatagram(datagram, panel, 9876) == datagram.size();
                ++(taken ? total : failures);
            }
            std::this_thread::sleep_until(now + std::chrono::milliseconds(1));
        }
    }

    std::atomic<int> rate{0};
    std::atomic<quint32> sequence{0};
    std::atomic<quint32> total{0};
    std::atomic<quint32> failures{0};
    std::atomic<bool> ending{false};
    std::thread thread;
};

/// A PLC that reads the number at register 102 ten times a second, in a thread of its own, and connects again
/// when the server has gone.
class PlcReader
{
    Q_DISABLE_COPY_MOVE(PlcReader)

public:
    PlcReader()
        : thread([this] { run(); })
    {
    }

    ~PlcReader()
    {
        ending = true;
        thread.join();
    }

    /// The number last read; 0 before the first.
    quint32 value() const { return last; }

private:
    void run()
    {
        std::unique_ptr<ModbusClient> client;
        while (!ending) {
            if (!client) {
                client = ModbusClient::tcp(502);
                std::ignore = client->connect(); // without a connection the read fails
            }
            const QVector<quint16> words = client->holding(102, 2);
            if (words.size() == 2) {
                last = static_cast<quint32>(words.at(0)) << 16U | words.at(1);
            } else {
                client.reset();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

    std::atomic<quint32> last{0};
    std::atomic<bool> ending{false};
    std::thread thread;
};
