// SPDX-License-Identifier: MIT
#include <cstdio>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QTextStream>

#include <unistd.h>

#include "blink.h"
#include "boardcheck.h"
#include "filescheck.h"
#include "report.h"
#include "settingscheck.h"
#include "toolcommandline.h"

using namespace VarnelCheck;

namespace {

enum ExitCode
{
    Fine = 0,
    Faulty = 1,
    NotChecked = 2,
};

struct Check
{
    const char* title;
    Findings (*run)(const PanelFiles&);
};

constexpr Check checks[] = {
    {"settings", &checkSettings}, {"network", &checkNetwork},    {"outputs", &checkOutputs},
    {"display", &checkDisplay},   {"pictures", &checkPictures},  {"scripts", &checkScripts},
    {"mapping", &checkMapping},   {"USB drive", &checkUsbDrive}, {"system", &checkSystem},
};

int fail(const QString& text)
{
    QTextStream(stderr) << "varnel-check: " << text << '\n';
    return NotChecked;
}

/// The loader of the mapping logs the whole file; only its warnings are of interest.
void writeLog(QtMsgType, const QMessageLogContext&, const QString&) {}

Report runChecks(const PanelFiles& panel, const QStringList& wanted)
{
    Report report;
    for (const Check& check : checks) {
        if (wanted.isEmpty() || wanted.contains(QLatin1String(check.title))) {
            report.append({QLatin1String(check.title), check.run(panel)});
        }
    }
    return report;
}

QString titles()
{
    QStringList all;
    for (const Check& check : checks) {
        all += QLatin1String(check.title);
    }
    return all.join(QLatin1String(", "));
}

bool isKnown(const QString& title)
{
    return std::any_of(std::begin(checks), std::end(checks),
                       [&](const Check& check) { return title == QLatin1String(check.title); });
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("varnel-check"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VARNEL_VERSION));
    qInstallMessageHandler(writeLog);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Checks the settings, files and hardware of a panel."));
    const QCommandLineOption root(
        QStringLiteral("root"), QStringLiteral("Check the files of an image in DIR."), QStringLiteral("DIR"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print one JSON object."));
    const QCommandLineOption brief(QStringLiteral("short"),
                                   QStringLiteral("Print one line for each warning and error."));
    const QCommandLineOption notes(
        QStringLiteral("notes"), QStringLiteral("Print facts as well: GPIO chips, packages of the scripts."));
    const QCommandLineOption blink(QStringLiteral("blink"),
                                   QStringLiteral("Switch each lamp and the buzzer on, and ask."));
    parser.addOptions({root, json, brief, notes, blink});
    parser.addPositionalArgument(QStringLiteral("check"),
                                 QStringLiteral("Only these checks, of: %1.").arg(titles()),
                                 QStringLiteral("[check...]"));
    const QString problem = Varnel::readCommandLine(parser);
    if (!problem.isEmpty()) {
        return fail(problem);
    }
    const QString directory = parser.value(root);
    if (parser.isSet(root) && !QDir(directory).exists()) {
        return fail(QStringLiteral("%1 is no directory").arg(directory));
    }
    const QStringList wanted = parser.positionalArguments();
    for (const QString& title : wanted) {
        if (!isKnown(title)) {
            return fail(QStringLiteral("unknown check '%1'; see --help").arg(title));
        }
    }
    const PanelFiles panel(parser.isSet(root) ? QDir(directory).absolutePath() : QString());
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    if (parser.isSet(blink)) {
        QTextStream in(stdin);
        return blinkOutputs(panel, in, out) ? Fine : Faulty;
    }
    const Report report = runChecks(panel, wanted);
    if (parser.isSet(json)) {
        out << QString::fromUtf8(asJson(report, packageVersion(panel, "varnel-browser")));
    } else if (parser.isSet(brief)) {
        out << asShortText(report);
    } else {
        out << asText(report, ::isatty(STDOUT_FILENO) == 1, parser.isSet(notes));
    }
    return count(report, Finding::Severity::Error) > 0 ? Faulty : Fine;
}
