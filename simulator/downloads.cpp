// SPDX-License-Identifier: MIT
#include "downloads.h"

namespace Simulator {

namespace {

constexpr qint64 kibi = 1024;
constexpr qint64 mebi = 1024 * kibi;
constexpr int paceChunk = 4096;

std::vector<Download> buildDownloads()
{
    return {
        {"plain", "Report", "attachment; filename=report.txt"},
        {"large", "Large file", "attachment; filename=large.bin", 5 * mebi},
        {"slow", "Slow file", "attachment; filename=slow.bin", 100 * kibi, 200},
        {"huge", "Huge file", "attachment; filename=huge.bin", 200 * mebi},
        {"quoted", "Quoted name", "attachment; filename=\"report.txt\""},
        {"twice", "Two names", "attachment;filename=log.txt; filename=b.txt"},
        {"upper", "Upper case key", "attachment; FILENAME=x"},
        {"extended", "Extended form", "attachment; filename*=UTF-8''x.txt"},
        {"nameless", "No name", "attachment"},
        {"blanks", "Blanks only", "attachment; filename=   ; size=2048"},
        {"dot", "Name .", "attachment; filename=."},
        {"dotdot", "Name ..", "attachment; filename=.."},
        {"climb", "Name with ../", "attachment; filename=../escaped.txt"},
        {"subdirectory", "Name with /", "attachment; filename=logs/today.txt"},
        {"latin1", "Latin-1 name", "attachment; filename=r\xE9sum\xE9.txt"},
        {"utf8", "Cyrillic name", "attachment; filename=\xD0\xBE\xD1\x82\xD1\x87\xD1\x91\xD1\x82.txt"},
        {"long", "300 characters", "attachment; filename=" + QByteArray(296, 'n') + ".txt"},
        {"percent", "Percent signs", "attachment; filename=100%25-%s-%1.txt"},
        {"hidden", "Hidden file", "attachment; filename=.hidden"},
        {"no-suffix", "No suffix", "attachment; filename=data"},
        {"no-header/data.bin", "Name from URL", QByteArray()},
        {"slash/", "URL ends in /", QByteArray()},
        {"empty", "Empty file", "attachment; filename=empty.bin", 0},
        {"break", "Breaks off", "attachment; filename=broken.bin", 64 * kibi, 0, BodyEnd::Break},
        {"stall", "Stops half way", "attachment; filename=stalled.bin", 64 * kibi, 0, BodyEnd::Stall},
    };
}

HttpReply reply(const Download& download)
{
    HttpReply answer;
    answer.addHeader("Content-Type", "application/octet-stream");
    if (!download.disposition.isNull()) {
        answer.addHeader("Content-Disposition", download.disposition);
    }
    answer.generated = download.size;
    answer.paceMs = download.paceMs;
    answer.chunk = paceChunk;
    answer.end = download.end;
    answer.stopAfter = download.size / 2;
    return answer;
}

HttpReply customReply(const QMap<QString, QString>& query)
{
    Download download{"custom", "", QByteArray()};
    if (query.contains(QStringLiteral("disposition"))) {
        download.disposition = query.value(QStringLiteral("disposition")).toUtf8();
    }
    download.size = qMax<qint64>(0, query.value(QStringLiteral("size"), QStringLiteral("2048")).toLongLong());
    download.paceMs = query.value(QStringLiteral("pace")).toInt();
    HttpReply answer = reply(download);
    answer.headers[0].second =
        query.value(QStringLiteral("type"), QStringLiteral("application/octet-stream")).toUtf8();
    for (const auto& [word, end] : {std::pair("break", BodyEnd::Break), std::pair("stall", BodyEnd::Stall)}) {
        if (query.contains(QLatin1String(word))) {
            answer.end = end;
            answer.stopAfter = query.value(QLatin1String(word)).toLongLong();
        }
    }
    return answer;
}

} // namespace

const std::vector<Download>& downloads()
{
    static const std::vector<Download> list = buildDownloads();
    return list;
}

HttpReply downloadReply(const QString& path, const QMap<QString, QString>& query)
{
    if (path.startsWith(QLatin1String("custom/"))) {
        return customReply(query);
    }
    for (const Download& download : downloads()) {
        if (path == QLatin1String(download.path)) {
            return reply(download);
        }
    }
    HttpReply missing;
    missing.status = 404;
    missing.addHeader("Content-Type", "text/plain");
    missing.body = "no such download\n";
    return missing;
}

} // namespace Simulator
