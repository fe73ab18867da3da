// SPDX-License-Identifier: MIT
#include "checkrun.h"

#include <QJsonDocument>

CheckRun::CheckRun(const RunOptions& runOptions, QTextStream* output)
    : options(runOptions)
    , out(*output)
    , checker(runOptions.timeoutSeconds)
{
}

void CheckRun::addPacket(const CapturedPacket& packet)
{
    counts.addPacket();
    if (const auto* const datagram = std::get_if<Datagram>(&packet.content)) {
        if (options.port == 0 || datagram->ends.targetPort == options.port) {
            addDatagram(packet.number, packet.timeUs, *datagram);
        } else {
            counts.addForeignPort(datagram->ends.targetPort);
        }
    } else if (const auto* const unreadable = std::get_if<Unreadable>(&packet.content)) {
        addUnreadable(packet, *unreadable);
    }
}

void CheckRun::addUnreadable(const CapturedPacket& packet, const Unreadable& unreadable)
{
    if (options.port != 0 && unreadable.targetPort.value_or(options.port) != options.port) {
        return;
    }
    counts.addUnreadable(unreadable.reason);
    const double seconds = secondsAt(packet.timeUs);
    if (options.isQuiet) {
        return;
    }
    if (options.isJson) {
        print({{QStringLiteral("event"), QStringLiteral("unreadable")},
               {QStringLiteral("number"), double(packet.number)},
               {QStringLiteral("seconds"), seconds},
               {QStringLiteral("reason"), unreadable.reason}});
    } else {
        out << QStringLiteral("%1  %2  not checked: %3\n")
                   .arg(packet.number)
                   .arg(seconds, 0, 'f', 3)
                   .arg(unreadable.reason);
    }
}

void CheckRun::addDatagram(qint64 number, qint64 timeUs, const Datagram& datagram)
{
    advance(timeUs);
    const Endpoints& ends = datagram.ends;
    check({number, secondsAt(timeUs), ends.source.toString(),
           QStringLiteral("%1:%2").arg(ends.target.toString()).arg(ends.targetPort)},
          datagram.payload, ends.source);
}

void CheckRun::addOctets(qint64 number, const QByteArray& octets)
{
    check({number, 0, {}, {}}, octets, {});
}

void CheckRun::advance(qint64 timeUs)
{
    const std::optional<QString> line = checker.advance(timeUs);
    if (!line) {
        return;
    }
    counts.addLinkLoss();
    if (options.isQuiet) {
        return;
    }
    if (options.isJson) {
        print({{QStringLiteral("event"), QStringLiteral("link-lost")},
               {QStringLiteral("seconds"), secondsAt(timeUs)},
               {QStringLiteral("log"), *line}});
    } else {
        out << QStringLiteral("   ") << printable(*line) << '\n';
    }
}

void CheckRun::check(const FrameOrigin& origin, const QByteArray& octets, const QHostAddress& sender)
{
    const FrameReport report = checker.check(octets, sender);
    counts.addFrame(origin, report);
    if (options.isQuiet) {
        return;
    }
    if (options.isJson) {
        print(asJson(origin, report));
        return;
    }
    out << headline(origin, report) << faultText(report);
    const bool isWanted = options.fields == FieldsOf::AllFrames ||
                          (options.fields == FieldsOf::FaultyFrames && !report.isFaultless());
    if (isWanted) {
        out << fieldText(report);
    }
}

void CheckRun::finish()
{
    if (options.isJson) {
        print(counts.asJson());
    } else {
        out << (options.isQuiet ? "" : "\n") << counts.asText();
    }
    out.flush();
}

bool CheckRun::isComplete() const
{
    return options.frameLimit > 0 && counts.frames() >= options.frameLimit;
}

void CheckRun::print(const QJsonObject& object)
{
    out << QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) << '\n';
}

double CheckRun::secondsAt(qint64 timeUs)
{
    firstUs = firstUs.value_or(timeUs);
    return double(timeUs - *firstUs) / 1e6;
}
