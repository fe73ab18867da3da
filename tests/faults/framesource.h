// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include <QByteArray>
#include <QString>

/// A controller that sends frames at a steady rate from a thread of its own, whatever the test waits for
/// meanwhile. Each frame carries the number of frames sent so far in the Core item that the sample mapping
/// puts at register 102.
class FrameSource
{
    Q_DISABLE_COPY_MOVE(FrameSource)

public:
    /// Makes the datagram with this sequence number and this value for the Core item.
    using Maker = std::function<QByteArray(quint32 sequence, quint32 value)>;

    /// Frames as a controller sends them, in `language`.
    static Maker frames(const char* language);
    /// Octets of any kind, of a frame's length.
    static QByteArray garbage(quint32 sequence, quint32 value);

    /// Silent at first. `address` is one of this host's.
    explicit FrameSource(const QString& address, Maker maker = frames("en"));
    ~FrameSource();

    /// Sends this number of datagrams a second from now on; 0 is silence.
    void setRate(int perSecond) { rate = perSecond; }
    /// The next frame has number 1, as after a start of the controller.
    void restartNumbers() { sequence = 0; }
    /// How many datagrams the kernel has taken so far: the value in the latest.
    quint32 sent() const { return total; }
    /// How many it has refused.
    quint32 refused() const { return failures; }

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void sendDue(Clock::time_point now);
    void sendOne();

    Maker maker;
    int socket = -1;
    std::atomic<int> rate{0};
    std::atomic<quint32> sequence{0};
    std::atomic<quint32> total{0};
    std::atomic<quint32> failures{0};
    std::atomic<bool> ending{false};
    Clock::time_point since;
    qint64 sinceThen = 0;
    int currentRate = 0;
    std::thread thread;
};
