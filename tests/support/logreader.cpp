// SPDX-License-Identifier: MIT
#include "logreader.h"

#include <QTest>

LogReader::LogReader(QObject* parent)
    : QObject(parent)
{
}

void LogReader::feed(const QByteArray& octets)
{
    allOctets += octets.size();
    unfinished += octets;
    int end = 0;
    while ((end = unfinished.indexOf('\n')) >= 0) {
        addLine(unfinished.left(end));
        unfinished.remove(0, end + 1);
    }
    emit added();
}

void LogReader::finish()
{
    if (!unfinished.isEmpty()) {
        addLine(unfinished);
        unfinished.clear();
    }
    emit added();
}

void LogReader::forget()
{
    received.clear();
    position = 0;
}

void LogReader::addLine(const QByteArray& line)
{
    ++allLines;
    static const QRegularExpression stamp(QStringLiteral(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} - )"));
    received += QString::fromUtf8(line).replace(stamp, QStringLiteral("<now> - "));
}

bool LogReader::await(const QString& line, std::chrono::milliseconds limit)
{
    return awaitCondition([&line](const QString& candidate) { return candidate == line; }, line, limit);
}

bool LogReader::await(const QStringList& wanted, std::chrono::milliseconds limit)
{
    return std::all_of(wanted.cbegin(), wanted.cend(),
                       [this, limit](const QString& line) { return await(line, limit); });
}

bool LogReader::await(const QRegularExpression& pattern, std::chrono::milliseconds limit)
{
    const auto matches = [this, &pattern](const QString& candidate) {
        match = pattern.match(candidate);
        return match.hasMatch();
    };
    return awaitCondition(matches, pattern.pattern(), limit);
}

bool LogReader::awaitCondition(const Condition& condition, const QString& wanted,
                               std::chrono::milliseconds limit)
{
    const bool found =
        QTest::qWaitFor([this, &condition] { return advance(condition); }, static_cast<int>(limit.count()));
    if (!found) {
        qWarning().noquote() << "Not logged:" << wanted << "\nThe last lines logged are:\n "
                             << received.mid(qMax(0, received.size() - 25)).join(QStringLiteral("\n  "));
    }
    return found;
}

bool LogReader::advance(const Condition& condition)
{
    for (int i = position; i < received.size(); ++i) {
        if (condition(received.at(i))) {
            position = i + 1;
            return true;
        }
    }
    return false;
}
