// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QTextStream>

#include "capture.h"
#include "framechecker.h"
#include "statistics.h"

/// The frames whose fields are printed.
enum class FieldsOf
{
    NoFrame,
    FaultyFrames,
    AllFrames,
};

/// The options of a run.
struct RunOptions
{
    quint16 port = 9876; ///< datagrams to other ports are left out; 0: all are checked
    int timeoutSeconds = 10;
    qint64 frameLimit = 0; ///< 0: no end
    FieldsOf fields = FieldsOf::FaultyFrames;
    bool isJson = false;
    bool isQuiet = false; ///< only the statistics
};

/// One run over frames from any source: checks, prints and counts them.
class CheckRun
{
public:
    CheckRun(const RunOptions& runOptions, QTextStream* output);

    /// A packet of a capture; packets that are not for the panel are only counted.
    void addPacket(const CapturedPacket& packet);

    /// A datagram that was received at `timeUs`.
    void addDatagram(qint64 number, qint64 timeUs, const Datagram& datagram);

    /// A frame of unknown origin.
    void addOctets(qint64 number, const QByteArray& octets);

    /// Lets the panel's clock run on without a frame.
    void advance(qint64 timeUs);

    /// Prints the statistics.
    void finish();

    /// True when the requested number of frames has been checked.
    [[nodiscard]] bool isComplete() const;

    [[nodiscard]] const Statistics& statistics() const { return counts; }

private:
    void check(const FrameOrigin& origin, const QByteArray& octets, const QHostAddress& sender);
    void addUnreadable(const CapturedPacket& packet, const Unreadable& unreadable);
    void print(const QJsonObject& object);
    [[nodiscard]] double secondsAt(qint64 timeUs);

    const RunOptions options;
    QTextStream& out;
    FrameChecker checker;
    Statistics counts;
    std::optional<qint64> firstUs;
};
