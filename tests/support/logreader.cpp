// SPDX-License-Identifier: MIT
#include "logreader.h"

#include <algorithm>

void LogReader::feed(const QByteArray& octets)
{
    allOctets += octets.size();
    unfinished += octets;
    int end = 0;
    while ((end = unfinished.indexOf('\n')) >= 0) {
        addLine(unfinished.left(end));
        unfinished.remove(0, end + 1);
    }
}

void LogReader::finish()
{
    if (!unfinished.isEmpty()) {
        addLine(unfinished);
        unfinished.clear();
    }
}

void LogReader::addLine(const QByteArray& line)
{
    ++allLines;
    static const QRegularExpression stamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} - )"_s);
    received += QString::fromUtf8(line).replace(stamp, "<now> - "_s);
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

bool LogReader::awaitCondition(const std::function<bool(const QString&)>& condition, const QString& wanted,
                               std::chrono::milliseconds limit)
{
    const auto advance = [&] {
        const auto line = std::find_if(received.cbegin() + position, received.cend(), condition);
        const bool isThere = line != received.cend();
        position = isThere ? static_cast<int>(line - received.cbegin()) + 1 : position;
        return isThere;
    };
    const bool found = awaitTrue(advance, limit);
    if (!found) {
        qWarning().noquote() << "Not logged:" << wanted << "\nThe last lines logged are:\n "
                             << received.mid(qMax(0, received.size() - 25)).join("\n  "_s);
    }
    return found;
}
