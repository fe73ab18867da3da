// SPDX-License-Identifier: MIT
#include "framechecker.h"

#include <algorithm>

#include <QLoggingCategory>
#include <QtDebug>

#include "crc16.h"
#include "fieldreader.h"
#include "framefields.h"

using namespace Varnel;

namespace {

constexpr int checksumSize = 2;
constexpr int smallestOffset = 8;
constexpr int payloadHeaderSize = 14;
constexpr int sectionHeaderSize = 4;

/// Collects the log lines that are written while it exists.
class LogLines
{
public:
    explicit LogLines(QStringList* lines)
        : previous(qInstallMessageHandler(&LogLines::write))
    {
        target = lines;
    }
    ~LogLines()
    {
        qInstallMessageHandler(previous);
        target = nullptr;
    }
    Q_DISABLE_COPY_MOVE(LogLines)

private:
    static void write(QtMsgType, const QMessageLogContext&, const QString& text) { target->append(text); }

    static QStringList* target;
    QtMessageHandler previous;
};

QStringList* LogLines::target = nullptr;

QString plural(int count, const char* noun)
{
    return QStringLiteral("%1 %2%3").arg(count).arg(QLatin1String(noun),
                                                    count == 1 ? QString() : QStringLiteral("s"));
}

/// For the beginning of a log line about a dropped frame: what is wrong, and where.
struct DropReason
{
    const char* words;
    int offset; ///< from the end where negative
    int width;
    QString (*text)(const QByteArray& octets);
};

quint16 wordAt(const QByteArray& octets, int offset)
{
    return FieldReader(octets).u16(offset);
}

const DropReason dropReasons[] = {
    {"Not a RLP magic number", 0, 1,
     [](const QByteArray& octets) {
         return octets.isEmpty() ? QStringLiteral("the datagram is empty; a frame begins with 0xce")
                                 : QStringLiteral("a frame begins with 0xce");
     }},
    {"Invalid checksum", -checksumSize, checksumSize,
     [](const QByteArray& octets) {
         if (octets.size() < checksumSize) {
             return QStringLiteral("the datagram is too short for a checksum");
         }
         const auto right = crc16(0x1021, 0, reinterpret_cast<const uchar*>(octets.constData()),
                                  static_cast<quint16>(octets.size() - checksumSize));
         const QString text =
             QStringLiteral("CRC-16/KERMIT of the octets before it is 0x%1, so these octets should be %2 %3")
                 .arg(right, 4, 16, QLatin1Char('0'))
                 .arg(right & 0xFF, 2, 16, QLatin1Char('0'))
                 .arg(right >> 8, 2, 16, QLatin1Char('0'));
         const int stated = wordAt(octets, 2) + 4;
         return stated == octets.size()
                    ? text
                    : text + QStringLiteral("; the payload length is that of a frame of %1, but %2 came")
                                 .arg(plural(stated, "octet"))
                                 .arg(octets.size());
     }},
    {"Unknown RLP version", 1, 1,
     [](const QByteArray&) { return QStringLiteral("the version has to be 1"); }},
    {"Payload length mismatch", 2, 2,
     [](const QByteArray& octets) {
         return QStringLiteral("the payload length is %1; for a frame of %2 it has to be %3")
             .arg(wordAt(octets, 2))
             .arg(plural(octets.size(), "octet"))
             .arg(octets.size() - 4);
     }},
    {"Section offset out of range", 4, 2,
     [](const QByteArray& octets) {
         return QStringLiteral(
                    "the section offset is %1; it has to be from %2 to the payload length, and 14 is right")
             .arg(wordAt(octets, 4))
             .arg(smallestOffset);
     }},
    {"Section count mismatch", 6, 2,
     [](const QByteArray&) {
         return QStringLiteral("the section count is 0, but octets for sections follow");
     }},
    {"No section to process", 6, 2,
     [](const QByteArray&) { return QStringLiteral("the section count is 0, and no section follows"); }},
    {"Out of the continuum", 12, 4,
     [](const QByteArray&) { return QStringLiteral("the continuity word must not be 0"); }},
    {"Repeated packet", 8, 4,
     [](const QByteArray& octets) {
         return FieldReader(octets).u32(8) == 0
                    ? QStringLiteral("0 counts as the last sequence number after start and after a link loss")
                    : QStringLiteral("the last accepted frame had this sequence number too");
     }},
};

} // namespace

FrameChecker::FrameChecker(int timeoutSeconds)
    : timeoutUs(qint64(timeoutSeconds) * 1000000)
{
    QLoggingCategory::setFilterRules(QStringLiteral("varnel.rlp.debug=true"));
}

std::optional<QString> FrameChecker::advance(qint64 timeUs)
{
    nowUs = timeUs;
    if (!hasPacketSender || nowUs - acceptedUs <= timeoutUs) {
        return std::nullopt;
    }
    hasPacketSender = false;
    lastSeqno = 0;
    QStringList line;
    const LogLines log(&line);
    qDebug() << "No packet received within the " << int(timeoutUs / 1000000) << "s window, unregister "
             << packetSender.toString();
    return line.first();
}

FrameReport FrameChecker::check(const QByteArray& octets, const QHostAddress& sender)
{
    report = {};
    report.octets = octets;
    report.sender = sender;
    report.fields = headerFields(octets);
    lines.clear();
    attributed = 0;
    Header header;
    RlpFrame frame;
    QByteArray data = octets;
    {
        const LogLines log(&lines);
        report.isAccepted = checkFrame(&data, sender, &header);
        if (report.isAccepted) {
            attributed = lines.size();
            budget = header.payloadLength - payloadHeaderSize;
            position = header.sectionOffset + 2;
            walkSections(data, header, &frame);
        }
    }
    report.log = lines;
    if (!report.isAccepted) {
        report.faults.append(frameFault());
        return report;
    }
    if (attributed <
        lines.size()) { // the walk ended before its count: only one line can follow its last section
        const int left = std::max(0, octets.size() - checksumSize - position);
        report.faults.append({std::min(position, octets.size()), left,
                              QStringLiteral("the section count is %1, but only %2 fit; %3 left over")
                                  .arg(header.sectionCount)
                                  .arg(plural(report.sections.size(), "section"), plural(left, "octet"))});
    }
    std::stable_sort(
        report.fields.begin(), report.fields.end(),
        [](const FrameField& left, const FrameField& right) { return left.offset < right.offset; });
    lastSeqno = frame.seqno;
    hasPacketSender = true;
    packetSender = sender;
    acceptedUs = nowUs;
    return report;
}

FrameFinding FrameChecker::frameFault() const
{
    for (const DropReason& reason : dropReasons) {
        if (lines.first().startsWith(QLatin1String(reason.words))) {
            const int size = report.octets.size();
            const int offset = std::clamp(reason.offset < 0 ? size + reason.offset : reason.offset, 0, size);
            return {offset, std::min(reason.width, size - offset), reason.text(report.octets)};
        }
    }
    return {0, 0,
            QStringLiteral("until %1 is silent, the panel drops the frames of others")
                .arg(packetSender.toString())};
}

void FrameChecker::sectionWalked(const WalkedSection& section, const RlpFrame& frame)
{
    report.sections.append({section.position, section.type, section.decoded});
    report.fields += sectionFields(section, frame, items());
    addSectionFaults(section, lines.mid(attributed));
    attributed = lines.size();
    budget = static_cast<quint16>(budget - section.advance);
    position = static_cast<quint16>(section.position + section.advance);
    if (!section.decoded && !report.faults.isEmpty()) {
        report.faults.last().text += QStringLiteral("; the panel looks for the next section at %1")
                                         .arg(position, 4, 16, QLatin1Char('0'));
    }
}

void FrameChecker::addSectionFaults(const WalkedSection& section, const QStringList& said)
{
    const auto has = [&said](const char* words) {
        return std::any_of(said.begin(), said.end(),
                           [words](const QString& line) { return line.contains(QLatin1String(words)); });
    };
    const int lengthAt = section.position + 2;
    const QString name = sectionName(section.type);
    if (has("Unknown section type")) {
        report.faults.append(
            {section.position, 2,
             QStringLiteral("0x%1 is no section type").arg(section.type, 2, 16, QLatin1Char('0'))});
    }
    if (has("Section length exceed")) {
        report.faults.append({lengthAt, 2,
                              QStringLiteral("the section says %1, but only %2 are left for sections")
                                  .arg(plural(section.length, "octet"))
                                  .arg(budget)});
    } else if (has("section length mismatch")) {
        report.faults.append({lengthAt, 2,
                              QStringLiteral("the length of a %1 section is %2; it has to be %3")
                                  .arg(name)
                                  .arg(section.length)
                                  .arg(sectionSize(section.type))});
    } else if (has("Payload size mismatch")) {
        report.faults.append(
            {lengthAt, 2,
             QStringLiteral(
                 "the length of this Core section is %1, but %2 are left: it has to be the last section")
                 .arg(section.length)
                 .arg(plural(budget, "octet"))});
    }
    if (has("runs past the section's end")) {
        const int itemAt = items().isEmpty() ? section.position + sectionHeaderSize
                                             : report.fields.last().offset + report.fields.last().width;
        report.faults.append(
            {itemAt, std::max(0, section.position + section.length - itemAt),
             QStringLiteral("this item claims more octets than the section has; it is left out")});
    }
}
