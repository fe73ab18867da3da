// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

#include <QRegularExpression>
#include <QStringList>
#include <QTest>

#include "literals.h"

/// How long a test waits for an event before it gives up: generous, since a loaded machine is slow and a
/// passing test never waits it out.
constexpr std::chrono::milliseconds patience{20000};

/// Waits, with the event loop running, until `condition` holds; false when it does not within `limit`.
template<typename Condition>
[[nodiscard]] bool awaitTrue(Condition condition, std::chrono::milliseconds limit = patience)
{
    return QTest::qWaitFor(condition, static_cast<int>(limit.count()));
}

/// The lines that a program has written, kept whole and in order, with a reading position: each successful
/// await moves the position behind the line it found, so successive awaits prove an order. A time stamp
/// "yyyy-MM-dd hh:mm:ss.zzz" in front of a line is kept as "<now>".
class LogReader
{
public:
    /// Adds octets as the program wrote them; an unfinished line is kept until its end arrives.
    void feed(const QByteArray& octets);
    /// Adds what is left of an unfinished line, once the program has ended.
    void finish();

    /// All lines so far.
    const QStringList& lines() const { return received; }
    /// The lines behind the reading position.
    QStringList unread() const { return received.mid(position); }
    /// How often exactly `line` was written so far, wherever the reading position is.
    int count(const QString& line) const { return received.count(line); }
    /// Moves the reading position behind the last line.
    void skip() { position = received.size(); }
    /// Moves the reading position back to the first line.
    void rewind() { position = 0; }
    /// Lets go of all lines so far, for a program that runs for hours.
    void forget()
    {
        received.clear();
        position = 0;
    }

    /// The number of lines and bytes so far, forgotten ones included.
    qint64 lineCount() const { return allLines; }
    qint64 octetCount() const { return allOctets; }

    /// Waits, with the event loop running, for exactly `line` behind the reading position. On failure prints
    /// what is missing and the last lines there are.
    [[nodiscard]] bool await(const QString& line, std::chrono::milliseconds limit = patience);
    /// The same for several lines in this order; others may be between them.
    [[nodiscard]] bool await(const QStringList& wanted, std::chrono::milliseconds limit = patience);
    /// The same for a line that matches `pattern` somewhere; its captures are in lastMatch().
    [[nodiscard]] bool await(const QRegularExpression& pattern, std::chrono::milliseconds limit = patience);
    const QRegularExpressionMatch& lastMatch() const { return match; }

private:
    void addLine(const QByteArray& line);
    bool awaitCondition(const std::function<bool(const QString&)>& condition, const QString& wanted,
                        std::chrono::milliseconds limit);

    QStringList received;
    QByteArray unfinished;
    int position = 0;
    qint64 allLines = 0;
    qint64 allOctets = 0;
    QRegularExpressionMatch match;
};
