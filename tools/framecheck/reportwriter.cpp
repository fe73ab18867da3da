// SPDX-License-Identifier: MIT
#include "reportwriter.h"

#include <algorithm>

#include <QJsonArray>
#include <QSet>

#include "framefields.h"

namespace {

constexpr int octetsPerLine = 16;
const QString indent = QStringLiteral("    ");

QString hexNumber(int value)
{
    return QStringLiteral("%1").arg(value, 4, 16, QLatin1Char('0'));
}

QString hexOctets(const QByteArray& octets)
{
    return QString::fromLatin1(octets.toHex(' '));
}

/// The column of an octet in a line of the dump, after its offset.
int columnOf(int octet)
{
    return 3 * octet + (octet >= octetsPerLine / 2 ? 1 : 0);
}

QString dumpLine(const QByteArray& octets, int at)
{
    QString line = indent + hexNumber(at) + QStringLiteral("  ");
    const QByteArray part = octets.mid(at, octetsPerLine);
    for (int i = 0; i < part.size(); ++i) {
        line += (i == octetsPerLine / 2 ? QStringLiteral(" ") : QString()) +
                QString::fromLatin1(part.mid(i, 1).toHex()) + QLatin1Char(' ');
    }
    return line.trimmed().prepend(indent) + QLatin1Char('\n');
}

/// The marks under the octets from `from` to before `to`, in the line that begins at `at`.
QString markLine(int at, int from, int to)
{
    const int first = columnOf(from - at);
    const int last = columnOf(to - 1 - at) + 2;
    return indent + QString(6 + first, QLatin1Char(' ')) + QString(last - first, QLatin1Char('^')) +
           QLatin1Char('\n');
}

/// The lines of the dump with a fault, and one before and after each; "..." for lines that are left out.
QString markedDump(const FrameReport& report)
{
    QSet<int> wanted;
    for (const FrameFinding& fault : report.faults) {
        const int last = (fault.offset + std::max(fault.width, 1) - 1) / octetsPerLine;
        for (int line = fault.offset / octetsPerLine - 1; line <= last + 1; ++line) {
            wanted.insert(line);
        }
    }
    QString text;
    bool isLeftOut = false;
    for (int at = 0; at < report.octets.size(); at += octetsPerLine) {
        if (!wanted.contains(at / octetsPerLine)) {
            text += isLeftOut ? QString() : indent + QStringLiteral("...\n");
            isLeftOut = true;
            continue;
        }
        isLeftOut = false;
        text += dumpLine(report.octets, at);
        for (const FrameFinding& fault : report.faults) {
            const int from = std::max(at, fault.offset);
            const int to = std::min(at + octetsPerLine, fault.offset + fault.width);
            text += from < to ? markLine(at, from, to) : QString();
        }
    }
    return text;
}

QString verdict(const FrameReport& report)
{
    if (!report.isAccepted) {
        return QStringLiteral("dropped");
    }
    QStringList names;
    for (const SectionReport& section : report.sections) {
        names += sectionName(section.type) + (section.decoded ? QString() : QStringLiteral(" (refused)"));
    }
    return QStringLiteral("accepted: ") + names.join(QStringLiteral(", "));
}

QString valueText(const FrameField& field)
{
    static const QStringList inHex{QStringLiteral("magic"), QStringLiteral("continuity"),
                                   QStringLiteral("checksum"), QStringLiteral("section.type")};
    const QJsonValue& value = field.value;
    if (inHex.contains(field.name)) {
        return QStringLiteral("0x%1").arg(quint32(value.toDouble()), 2 * field.width, 16, QLatin1Char('0'));
    }
    if (value.isBool()) {
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    }
    return value.isDouble() ? QString::number(value.toDouble(), 'f', 0)
                            : QLatin1Char('"') + printable(value.toString()) + QLatin1Char('"');
}

} // namespace

QString printable(const QString& text)
{
    QString result;
    for (const QChar c : text) {
        result +=
            c.isPrint() ? QString(c) : QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
    }
    return result;
}

QString headline(const FrameOrigin& origin, const FrameReport& report)
{
    QString ends;
    if (!origin.source.isEmpty()) {
        ends = QStringLiteral("%1 > %2  ").arg(origin.source, origin.target);
    }
    return QStringLiteral("%1  %2  %3%4 octets  %5\n")
        .arg(origin.number)
        .arg(origin.seconds, 0, 'f', 3)
        .arg(ends)
        .arg(report.octets.size())
        .arg(verdict(report));
}

QString faultText(const FrameReport& report)
{
    QString text;
    for (const QString& line : report.log) {
        text += indent + printable(line) + QLatin1Char('\n');
    }
    if (report.faults.isEmpty()) {
        return text;
    }
    const bool isInFrame = std::any_of(report.faults.begin(), report.faults.end(),
                                       [](const FrameFinding& fault) { return fault.width > 0; });
    if (isInFrame) {
        text += QLatin1Char('\n') + markedDump(report);
    }
    text += QLatin1Char('\n');
    for (const FrameFinding& fault : report.faults) {
        text += indent +
                (fault.width > 0 ? QStringLiteral("at %1: ").arg(hexNumber(fault.offset)) : QString()) +
                fault.text + QLatin1Char('\n');
    }
    return text + QLatin1Char('\n');
}

QString fieldText(const FrameReport& report)
{
    constexpr int shownOctets = 8;
    QString text =
        indent +
        QStringLiteral(
            "offset  octets                      field                   value             meaning\n");
    for (const FrameField& field : report.fields) {
        QString octets = hexOctets(report.octets.mid(field.offset, std::min(field.width, shownOctets)));
        octets += field.width > shownOctets ? QStringLiteral(" ..") : QString();
        text += indent + QStringLiteral("%1    %2  %3  %4  %5\n")
                             .arg(hexNumber(field.offset))
                             .arg(octets, -26)
                             .arg(field.name, -22)
                             .arg(valueText(field).leftJustified(16), field.meaning);
    }
    return text + QLatin1Char('\n');
}

QJsonObject asJson(const FrameOrigin& origin, const FrameReport& report)
{
    QJsonArray faults;
    for (const FrameFinding& fault : report.faults) {
        faults.append(QJsonObject{{QStringLiteral("offset"), fault.offset},
                                  {QStringLiteral("width"), fault.width},
                                  {QStringLiteral("text"), fault.text}});
    }
    QJsonArray fields;
    for (const FrameField& field : report.fields) {
        fields.append(QJsonObject{{QStringLiteral("name"), field.name},
                                  {QStringLiteral("offset"), field.offset},
                                  {QStringLiteral("octets"),
                                   QString::fromLatin1(report.octets.mid(field.offset, field.width).toHex())},
                                  {QStringLiteral("value"), field.value},
                                  {QStringLiteral("meaning"), field.meaning}});
    }
    QJsonArray sections;
    for (const SectionReport& section : report.sections) {
        sections.append(QJsonObject{{QStringLiteral("offset"), section.offset},
                                    {QStringLiteral("type"), section.type},
                                    {QStringLiteral("name"), sectionName(section.type)},
                                    {QStringLiteral("decoded"), section.decoded}});
    }
    return {{QStringLiteral("event"), QStringLiteral("frame")},
            {QStringLiteral("number"), double(origin.number)},
            {QStringLiteral("seconds"), origin.seconds},
            {QStringLiteral("source"), origin.source},
            {QStringLiteral("target"), origin.target},
            {QStringLiteral("octets"), report.octets.size()},
            {QStringLiteral("accepted"), report.isAccepted},
            {QStringLiteral("log"), QJsonArray::fromStringList(report.log)},
            {QStringLiteral("faults"), faults},
            {QStringLiteral("sections"), sections},
            {QStringLiteral("fields"), fields}};
}
