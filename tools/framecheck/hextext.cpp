// SPDX-License-Identifier: MIT
#include "hextext.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr int longestLine = 1024 * 1024;
constexpr int largestDatagram = 65535;

bool isHex(const QByteArray& word)
{
    return !word.isEmpty() &&
           std::all_of(word.cbegin(), word.cend(), [](char c) { return std::isxdigit(uchar(c)) != 0; });
}

/// The octets of a line without an offset: "ce 01", "ce01", "0xce, 0x01", "ce:01"; nothing when it is
/// anything else.
std::optional<QByteArray> octetsOf(QByteArray line)
{
    for (char& c : line) {
        c = c == ',' || c == ':' || c == ';' || c == '-' || c == '{' || c == '}' ? ' ' : c;
    }
    QByteArray octets;
    for (QByteArray word : line.simplified().split(' ')) {
        if (word.startsWith("0x") || word.startsWith("0X")) {
            word = word.mid(2).rightJustified(2, '0');
        }
        if (!word.isEmpty() && (!isHex(word) || word.size() % 2 != 0)) {
            return std::nullopt;
        }
        octets += QByteArray::fromHex(word);
    }
    return octets;
}

/// The octets of a line of a hex dump whose offset is `offset` or 0; nothing when it is no such line.
std::optional<QByteArray> dumpedOctets(const QByteArray& line, int offset, bool* isFirst)
{
    constexpr int octetsPerLine = 16;
    constexpr int mostBlanks = 2; // between octets; more blanks lead to the column of text
    const int end =
        int(std::find_if(line.cbegin(), line.cend(), [](char c) { return std::isxdigit(uchar(c)) == 0; }) -
            line.cbegin());
    const int stated = line.left(end).toInt(nullptr, 16);
    if (end < 4 || end > 8 || end == line.size() ||
        (line.at(end) != ':' && std::isspace(uchar(line.at(end))) == 0) ||
        (stated != 0 && stated != offset)) {
        return std::nullopt;
    }
    *isFirst = stated == 0;
    QByteArray digits;
    int blanks = 0;
    for (int i = end + 1; i < line.size() && digits.size() < 2 * octetsPerLine; ++i) {
        const char c = line.at(i);
        blanks = std::isspace(uchar(c)) != 0 ? blanks + 1 : 0;
        if ((blanks > mostBlanks && !digits.isEmpty()) || (blanks == 0 && std::isxdigit(uchar(c)) == 0)) {
            break;
        }
        if (blanks == 0) {
            digits += c;
        }
    }
    return digits.size() % 2 == 0 ? std::optional<QByteArray>(QByteArray::fromHex(digits)) : std::nullopt;
}

} // namespace

std::optional<QByteArray> HexText::next()
{
    while (problem.isEmpty() && !finished) {
        QByteArray line = device->readLine(longestLine);
        if (line.isEmpty()) {
            break;
        }
        ++number;
        line = line.split('#').first().trimmed();
        if (!line.isEmpty()) {
            takeLine(line);
        } else if (!frame.isEmpty()) {
            break;
        }
    }
    if (!problem.isEmpty()) {
        return std::nullopt;
    }
    if (finished) {
        return std::exchange(finished, std::nullopt);
    }
    return frame.isEmpty() ? std::nullopt : std::optional<QByteArray>(std::exchange(frame, QByteArray()));
}

void HexText::takeLine(const QByteArray& line)
{
    bool isFirst = false;
    std::optional<QByteArray> octets = dumpedOctets(line, frame.size(), &isFirst);
    if (octets && isFirst && !frame.isEmpty()) {
        finished = std::exchange(frame, QByteArray());
    }
    if (!octets) {
        octets = octetsOf(line);
    }
    if (!octets) {
        problem = QStringLiteral("line %1 has something other than hexadecimal octets").arg(number);
    } else if (frame.size() + octets->size() > largestDatagram) {
        problem = QStringLiteral("line %1: no datagram has more than %2 octets; an empty line ends a frame")
                      .arg(number)
                      .arg(largestDatagram);
    } else {
        frame += *octets;
    }
}
