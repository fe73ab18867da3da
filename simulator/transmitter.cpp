// SPDX-License-Identifier: MIT
#include "transmitter.h"

#include "framerecorder.h"

#include <QtDebug>

#include <utility>

namespace Simulator {

Transmitter::Transmitter(SectionSource sections, QObject* parent)
    : QObject(parent)
    , sectionSource(std::move(sections))
{
    silenceEnd.setSingleShot(true);
    connect(&schedule, &QTimer::timeout, this, &Transmitter::tick);
    connect(&silenceEnd, &QTimer::timeout, this, &Transmitter::resume);
}

Varnel::Outcome<> Transmitter::open(const Route& newRoute)
{
    route = newRoute;
    const QHostAddress source = route.source.isNull() ? QHostAddress(QHostAddress::AnyIPv4) : route.source;
    socket.close();
    if (!socket.bind(source, 0)) {
        return Varnel::Refusal(
            QStringLiteral("cannot send from %1: %2").arg(source.toString(), socket.errorString()));
    }
    sentFrom = source;
    if (route.source.isNull()) {
        QUdpSocket probe; // which address the system takes for this target; nothing is sent
        probe.connectToHost(route.target, route.port);
        sentFrom = probe.localAddress();
    }
    return {};
}

void Transmitter::start(int intervalMs, qint64 frameLimit)
{
    limited = frameLimit > 0;
    framesLeft = frameLimit;
    schedule.start(intervalMs);
    tick();
}

void Transmitter::stop()
{
    schedule.stop();
    silenceEnd.stop();
}

void Transmitter::silence(int durationMs)
{
    silent = true;
    silenceEnd.stop();
    if (durationMs > 0) {
        silenceEnd.start(durationMs);
    }
}

void Transmitter::resume()
{
    silenceEnd.stop();
    silent = false;
}

void Transmitter::setFault(const FrameFault* newFault, qint64 count)
{
    fault = newFault;
    faultsLeft = count;
}

void Transmitter::tick()
{
    if (silent || (limited && framesLeft == 0)) {
        return;
    }
    --framesLeft;
    const FrameFault* now = fault;
    if (fault != nullptr && faultsLeft > 0 && --faultsLeft == 0) {
        fault = nullptr;
    }
    sendFrame(now);
}

void Transmitter::burst(int count)
{
    for (int i = 0; i < count; ++i) {
        sendFrame(nullptr);
    }
}

void Transmitter::repeatLast(int count)
{
    for (int i = 0; i < count; ++i) {
        send(lastDatagram, {{QStringLiteral("fault"), QStringLiteral("duplicate")}});
    }
}

void Transmitter::sendRecorded(const QByteArray& octets)
{
    if (!silent) {
        send(octets, {{QStringLiteral("replayed"), true}});
    }
}

void Transmitter::sendRaw(const QByteArray& octets, const QString& what)
{
    send(octets, {{QStringLiteral("fault"), what}});
}

void Transmitter::sendFrame(const FrameFault* withFault)
{
    FrameParts parts;
    parts.sequence = nextSequence++;
    parts.sections = sectionSource();
    QJsonObject description{{QStringLiteral("sequence"), static_cast<double>(parts.sequence)},
                            {QStringLiteral("sections"), parts.sections.size()}};
    if (withFault != nullptr) {
        description.insert(QStringLiteral("fault"), QLatin1String(withFault->name));
    }
    send(withFault != nullptr ? withFault->build(parts) : encodeFrame(parts), description);
}

void Transmitter::send(const QByteArray& octets, QJsonObject description)
{
    lastDatagram = octets;
    const qint64 written = socket.writeDatagram(octets, route.target, route.port);
    description.insert(QStringLiteral("event"), QStringLiteral("frame"));
    description.insert(QStringLiteral("octets"), octets.size());
    description.insert(QStringLiteral("from"), route.source.toString());
    description.insert(QStringLiteral("to"),
                       QStringLiteral("%1:%2").arg(route.target.toString()).arg(route.port));
    if (written != octets.size()) {
        description.insert(QStringLiteral("error"), socket.errorString());
        complain(socket.errorString());
    } else {
        lastProblem.clear();
        if (recorder != nullptr) {
            recorder->record(octets, sentFrom, socket.localPort(), route.target, route.port);
        }
    }
    emit sent(description);
}

/// Reports once, not with every frame, that nothing can be sent.
void Transmitter::complain(const QString& problem)
{
    if (problem != lastProblem) {
        lastProblem = problem;
        qWarning().noquote() << QStringLiteral("cannot send to %1:%2: %3")
                                    .arg(route.target.toString())
                                    .arg(route.port)
                                    .arg(problem);
    }
}

} // namespace Simulator
