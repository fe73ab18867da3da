// SPDX-License-Identifier: MIT
#pragma once

#include "framefaults.h"
#include "outcome.h"

#include <QHostAddress>
#include <QJsonObject>
#include <QObject>
#include <QTimer>
#include <QUdpSocket>

#include <functional>

namespace Simulator {

class FrameRecorder;

/// The target and the source address of frames.
struct Route
{
    QHostAddress source; ///< null: the system chooses
    QHostAddress target;
    quint16 port = 9876;
};

/// Sends frames of one controller on a schedule and keeps its sequence number.
class Transmitter : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Transmitter)

public:
    using SectionSource = std::function<QList<QByteArray>()>;

    /// `sections` returns the sections of each frame when it is sent.
    explicit Transmitter(SectionSource sections, QObject* parent = nullptr);
    ~Transmitter() override = default;

    /// Binds the socket.
    Varnel::Outcome<> open(const Route& newRoute);

    /// Sends the first frame at once and the next ones every `intervalMs`; stops after `frameLimit` frames
    /// unless that is 0.
    void start(int intervalMs, qint64 frameLimit = 0);

    /// Stops sending until start().
    void stop();

    /// Changes the schedule from the next frame on.
    void setInterval(int intervalMs) { schedule.setInterval(intervalMs); }

    /// Keeps the schedule running but sends nothing for `durationMs`; 0 means until resume().
    void silence(int durationMs);

    /// Ends a silence.
    void resume();

    /// True during a silence.
    [[nodiscard]] bool isSilent() const { return silent; }

    /// Restarts the sequence: `sequence` is the next number.
    void setSequence(quint32 sequence) { nextSequence = sequence; }

    /// The sequence number of the next frame.
    [[nodiscard]] quint32 sequence() const { return nextSequence; }

    /// Spoils the next `count` scheduled frames; 0 spoils all until a null fault is set.
    void setFault(const FrameFault* newFault, qint64 count);

    /// Sends `count` correct frames at once, each with its own number.
    void burst(int count);

    /// Sends the last datagram `count` times more.
    void repeatLast(int count);

    /// Sends a frame of a recording, except during a silence.
    void sendRecorded(const QByteArray& octets);

    /// Writes all further datagrams into `newRecorder`, which must outlive the transmitter; null: stops that.
    void setRecorder(FrameRecorder* newRecorder) { recorder = newRecorder; }

    /// Sends octets as they are.
    void sendRaw(const QByteArray& octets, const QString& what);

signals:
    /// Emitted after every datagram, for the log.
    void sent(const QJsonObject& description);

private:
    void tick();
    void sendFrame(const FrameFault* withFault);
    void send(const QByteArray& octets, QJsonObject description);

    void complain(const QString& problem);

    SectionSource sectionSource;
    Route route;
    QHostAddress sentFrom; ///< the route's source, or the system's choice
    FrameRecorder* recorder = nullptr;
    QString lastProblem; ///< why the last datagram could not be sent
    QUdpSocket socket;
    QTimer schedule;
    QTimer silenceEnd;
    QByteArray lastDatagram;
    const FrameFault* fault = nullptr;
    qint64 faultsLeft = 0;
    qint64 framesLeft = 0;
    quint32 nextSequence = 1;
    bool limited = false;
    bool silent = false;
};

} // namespace Simulator
