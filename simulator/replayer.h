// SPDX-License-Identifier: MIT
#pragma once

#include "capture.h"
#include "outcome.h"
#include "recordedsite.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

namespace Simulator {

/// Plays the frames of a capture at their recorded times. It reads the capture twice: for its pages at the
/// start, and for each frame when it is due.
class Replayer : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Replayer)

public:
    explicit Replayer(QObject* parent = nullptr);
    ~Replayer() override = default;

    /// Reads the capture for its pages, and looks for datagrams to `port`.
    [[nodiscard]] Varnel::Outcome<> open(const QString& path, quint16 port);

    /// Emits the frames, `speed` times as fast as they were recorded.
    void start(double speed);

    /// The senders of the frames, in the order in which they appear.
    [[nodiscard]] const QList<QHostAddress>& senders() const { return recordedSenders; }

    /// The pages of the recording.
    [[nodiscard]] const RecordedSite& site() const { return pages; }

    /// The time of the recording that is being played, in microseconds since 1970.
    [[nodiscard]] qint64 position() const;

signals:
    /// Emitted when a frame is due; `sender` is the index of its recorded sender in senders().
    void due(const QByteArray& octets, int sender);

    /// Emitted after the last frame; `problem` says why the replay ended early, if it did.
    void ended(const QString& problem);

private:
    struct Frame
    {
        qint64 timeUs = 0;
        Datagram datagram;
    };

    [[nodiscard]] std::optional<Frame> nextFrame();
    void play();

    std::unique_ptr<Capture> capture;
    std::optional<Frame> waiting;
    RecordedSite pages;
    QList<QHostAddress> recordedSenders;
    QTimer timer;
    QElapsedTimer clock;
    double factor = 1;
    qint64 firstUs = 0;
    quint16 port = 0;
};

} // namespace Simulator
