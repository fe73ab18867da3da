// SPDX-License-Identifier: MIT
#include "statistics.h"

#include <algorithm>
#include <numeric>

#include "framefields.h"

namespace {

/// Limit for the kinds that are counted separately; a hostile capture can have millions.
constexpr int mostKinds = 100;

/// The part of a log line that is the same for all frames.
QString reasonOf(const QString& line)
{
    QString words = line.section(QLatin1Char('('), 0, 0).trimmed();
    return words.endsWith(QLatin1Char('.')) ? words.chopped(1) : words;
}

quint32 sequenceOf(const FrameReport& report)
{
    for (const FrameField& field : report.fields) {
        if (field.name == QLatin1String("seqno")) {
            return quint32(field.value.toDouble());
        }
    }
    return 0;
}

QString lines(const QString& title, const QMap<QString, qint64>& counts)
{
    QString text;
    for (auto one = counts.cbegin(); one != counts.cend(); ++one) {
        text += QStringLiteral("%1 %2 %3\n").arg(title, -17).arg(*one, 9).arg(printable(one.key()));
    }
    return text;
}

QJsonObject object(const QMap<QString, qint64>& counts)
{
    QJsonObject result;
    for (auto one = counts.cbegin(); one != counts.cend(); ++one) {
        result.insert(one.key(), double(*one));
    }
    return result;
}

} // namespace

void Statistics::count(Counts* counts, const QString& what)
{
    const bool isNew = !counts->contains(what);
    ++(*counts)[isNew && counts->size() >= mostKinds ? QStringLiteral("others") : what];
}

void Statistics::addFrame(const FrameOrigin& origin, const FrameReport& report)
{
    if (!origin.source.isEmpty()) {
        count(&senders, origin.source);
        count(&targets, origin.target);
    }
    if (!report.isAccepted) {
        ++dropped;
        count(&reasons, reasonOf(report.log.first()));
        return;
    }
    for (const SectionReport& section : report.sections) {
        count(&sections,
              sectionName(section.type) + (section.decoded ? QString() : QStringLiteral(" refused")));
    }
    const quint32 sequence = sequenceOf(report);
    if (accepted > 0) {
        longestGap = std::max(longestGap, origin.seconds - lastAccepted);
        restarts += sequence < lastSequence ? 1 : 0;
        missing += sequence > lastSequence ? sequence - lastSequence - 1 : 0;
    }
    ++accepted;
    refused += report.isFaultless() ? 0 : 1;
    lastAccepted = origin.seconds;
    lastSequence = sequence;
}

void Statistics::addUnreadable(const QString& reason)
{
    count(&unreadable, reason);
}

void Statistics::addForeignPort(quint16 port)
{
    ++ports[port];
}

qint64 Statistics::unreadablePackets() const
{
    return std::accumulate(unreadable.begin(), unreadable.end(), qint64(0));
}

QString Statistics::foreignPorts() const
{
    constexpr int shown = 5;
    QStringList list;
    for (auto port = ports.cbegin(); port != ports.cend() && list.size() < shown; ++port) {
        list += QStringLiteral("%1 (%2)").arg(port.key()).arg(*port);
    }
    return list.join(QStringLiteral(", ")) + (ports.size() > shown ? QStringLiteral(" ...") : QString());
}

QString Statistics::asText() const
{
    QString text =
        QStringLiteral("frames            %1, %2 accepted, %3 dropped, %4 accepted with a section refused\n")
            .arg(frames(), 9)
            .arg(accepted)
            .arg(dropped)
            .arg(refused);
    text += lines(QStringLiteral("dropped"), reasons) + lines(QStringLiteral("section"), sections) +
            lines(QStringLiteral("sender"), senders) + lines(QStringLiteral("sent to"), targets) +
            lines(QStringLiteral("not checked"), unreadable);
    text += QStringLiteral("sequence numbers  %1 skipped, %2 times back\n").arg(missing, 9).arg(restarts);
    text += QStringLiteral("longest silence   %1 s between accepted frames, the link was lost %2 times\n")
                .arg(longestGap, 9, 'f', 3)
                .arg(linkLosses);
    return text;
}

QJsonObject Statistics::asJson() const
{
    return {
        {QStringLiteral("event"), QStringLiteral("summary")}, {QStringLiteral("packets"), double(packets)},
        {QStringLiteral("frames"), double(frames())},         {QStringLiteral("accepted"), double(accepted)},
        {QStringLiteral("dropped"), double(dropped)},         {QStringLiteral("refused"), double(refused)},
        {QStringLiteral("reasons"), object(reasons)},         {QStringLiteral("sections"), object(sections)},
        {QStringLiteral("senders"), object(senders)},         {QStringLiteral("targets"), object(targets)},
        {QStringLiteral("unreadable"), object(unreadable)},   {QStringLiteral("skipped"), double(missing)},
        {QStringLiteral("restarts"), double(restarts)},       {QStringLiteral("longestSilence"), longestGap},
        {QStringLiteral("linkLosses"), double(linkLosses)}};
}
