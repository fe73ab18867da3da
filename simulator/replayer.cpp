// SPDX-License-Identifier: MIT
#include "replayer.h"

#include "progress.h"

#include <QFileInfo>

#include <algorithm>
#include <chrono>

namespace Simulator {

namespace {

constexpr int mostSenders = 8;
constexpr int framesPerTurn = 64; ///< then HTTP has its turn

} // namespace

Replayer::Replayer(QObject* parent)
    : QObject(parent)
{
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &Replayer::play);
}

Varnel::Outcome<> Replayer::open(const QString& path, quint16 framePort)
{
    const auto refusal = [&path](const QString& problem) {
        return Varnel::Refusal(QStringLiteral("--replay: %1: %2").arg(path, problem));
    };
    port = framePort;
    capture = std::make_unique<Capture>();
    if (const QString problem = capture->openFile(path); !problem.isEmpty()) {
        return refusal(problem);
    }
    QMap<quint16, int> otherPorts;
    Progress progress("read", QFileInfo(path).size());
    while (const std::optional<CapturedPacket> packet = capture->next()) {
        progress.show(capture->position());
        if (const auto* const segment = std::get_if<Segment>(&packet->content)) {
            pages.add(*segment, packet->timeUs);
        } else if (const auto* const datagram = std::get_if<Datagram>(&packet->content)) {
            const QHostAddress& sender = datagram->ends.source;
            if (datagram->ends.targetPort != port) {
                ++otherPorts[datagram->ends.targetPort];
            } else if (!recordedSenders.contains(sender) && recordedSenders.size() < mostSenders) {
                recordedSenders.append(sender);
            }
        }
    }
    pages.finish();
    if (recordedSenders.isEmpty()) {
        QString text = QStringLiteral("no datagram to port %1").arg(port);
        if (!otherPorts.isEmpty()) {
            const auto most = std::max_element(otherPorts.begin(), otherPorts.end());
            text += QStringLiteral("; %1 to port %2 (see --replay-port)").arg(*most).arg(most.key());
        }
        return refusal(text);
    }
    const QString problem = capture->openFile(path);
    return problem.isEmpty() ? Varnel::Outcome<>() : refusal(problem);
}

void Replayer::start(double speed)
{
    factor = speed;
    waiting = nextFrame();
    firstUs = waiting ? waiting->timeUs : 0;
    clock.start();
    play();
}

qint64 Replayer::position() const
{
    return firstUs + qint64(double(clock.isValid() ? clock.nsecsElapsed() : 0) / 1000 * factor);
}

std::optional<Replayer::Frame> Replayer::nextFrame()
{
    while (const std::optional<CapturedPacket> packet = capture->next()) {
        const auto* const datagram = std::get_if<Datagram>(&packet->content);
        if (datagram != nullptr && datagram->ends.targetPort == port) {
            return Frame{packet->timeUs, *datagram};
        }
    }
    return std::nullopt;
}

void Replayer::play()
{
    for (int sent = 0; waiting && waiting->timeUs <= position() && sent < framesPerTurn; ++sent) {
        const int sender = recordedSenders.indexOf(waiting->datagram.ends.source);
        if (sender >= 0) {
            emit due(waiting->datagram.payload, sender);
        }
        waiting = nextFrame();
    }
    if (!waiting) {
        emit ended(capture->error());
        return;
    }
    constexpr double longestWaitMs = 3600000;
    const double leftMs = double(waiting->timeUs - position()) / 1000 / factor;
    // Rounded up: an early timer would have to run again.
    timer.start(std::chrono::milliseconds(qint64(std::clamp(leftMs + 0.999, 0.0, longestWaitMs))));
}

} // namespace Simulator
