// SPDX-License-Identifier: MIT
#include "report.h"

#include <algorithm>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSysInfo>

namespace VarnelCheck {

namespace {

using Severity = Finding::Severity;

/// Word and colour of each severity (ECMA-48 SGR parameters), in the order of the enumeration.
struct Look
{
    const char* word;
    const char* color;
};
constexpr Look looks[] = {{"note", "36"}, {"warning", "33"}, {"error", "31"}};

const Look& lookOf(const Finding& finding)
{
    return looks[int(finding.severity)];
}

QString colored(const QString& text, const char* color, bool isColored)
{
    return isColored ? QStringLiteral("\x1b[%1m%2\x1b[0m").arg(QLatin1String(color), text) : text;
}

QString counted(int number, const char* what)
{
    const QString text = QStringLiteral("%1 %2").arg(number).arg(QLatin1String(what));
    return number == 1 ? text : text + QLatin1Char('s');
}

QString asLines(const Finding& finding, bool isColored)
{
    const Look& look = lookOf(finding);
    QString text = QStringLiteral("  %1 %2: %3\n")
                       .arg(colored(QLatin1String(look.word) + QLatin1Char(':'), look.color, isColored),
                            finding.where, finding.what);
    if (!finding.why.isEmpty()) {
        text += QStringLiteral("      %1\n").arg(finding.why);
    }
    if (!finding.fix.isEmpty()) {
        text += QStringLiteral("      -> %1\n").arg(finding.fix);
    }
    return text;
}

} // namespace

int count(const Report& report, Severity severity)
{
    int number = 0;
    for (const Section& section : report) {
        number +=
            int(std::count_if(section.findings.begin(), section.findings.end(),
                              [severity](const Finding& finding) { return finding.severity == severity; }));
    }
    return number;
}

QString asText(const Report& report, bool isColored, bool hasNotes)
{
    QString text;
    for (const Section& section : report) {
        QString lines;
        bool isGood = true;
        for (const Finding& finding : section.findings) {
            isGood = isGood && finding.severity == Severity::Note;
            if (hasNotes || finding.severity != Severity::Note) {
                lines += asLines(finding, isColored);
            }
        }
        text += section.title + QLatin1String(": ") +
                (isGood ? colored(QStringLiteral("ok"), "32", isColored) : QString()) + QLatin1Char('\n') +
                lines;
    }
    return text + QStringLiteral("%1, %2\n")
                      .arg(counted(count(report, Severity::Error), "error"),
                           counted(count(report, Severity::Warning), "warning"));
}

QString asShortText(const Report& report)
{
    QString text;
    for (const Section& section : report) {
        for (const Finding& finding : section.findings) {
            if (finding.severity != Severity::Note) {
                text +=
                    QStringLiteral("%1: %2: %3. %4\n")
                        .arg(QLatin1String(lookOf(finding).word), finding.where, finding.what, finding.fix);
            }
        }
    }
    return text;
}

QByteArray asJson(const Report& report, const QString& version)
{
    QJsonArray findings;
    for (const Section& section : report) {
        for (const Finding& finding : section.findings) {
            findings.append(QJsonObject{{QStringLiteral("check"), section.title},
                                        {QStringLiteral("severity"), QLatin1String(lookOf(finding).word)},
                                        {QStringLiteral("where"), finding.where},
                                        {QStringLiteral("what"), finding.what},
                                        {QStringLiteral("why"), finding.why},
                                        {QStringLiteral("fix"), finding.fix}});
        }
    }
    const QJsonObject object{{QStringLiteral("version"), version},
                             {QStringLiteral("host"), QSysInfo::machineHostName()},
                             {QStringLiteral("kernel"), QSysInfo::kernelVersion()},
                             {QStringLiteral("errors"), count(report, Severity::Error)},
                             {QStringLiteral("warnings"), count(report, Severity::Warning)},
                             {QStringLiteral("findings"), findings}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace VarnelCheck
