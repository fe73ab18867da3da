// SPDX-License-Identifier: MIT
#include "options.h"

#include <QCommandLineParser>

namespace Varnel {

namespace {

constexpr int usageError = 2;
constexpr int maxSeconds = 1000000; // more than eleven days; as milliseconds it still fits an int

const QString description = QStringLiteral("Modbus server for the register tables of the R7M touch panel. It "
                                           "is started, fed and stopped over D-Bus by "
                                           "mbserverstart.sh, mbserverupdate.sh and mbserverstop.sh.");

struct SecondsOption
{
    QCommandLineOption option;
    std::chrono::milliseconds ServiceOptions::*target;
};

const QCommandLineOption& busOption()
{
    static const QCommandLineOption option(
        {QStringLiteral("b"), QStringLiteral("bus")},
        QStringLiteral("Bus to serve on: system, session or a D-Bus address. Default: system."),
        QStringLiteral("bus"), QStringLiteral("system"));
    return option;
}

const QCommandLineOption& stateOption()
{
    static const QCommandLineOption option(
        QStringLiteral("state"),
        QStringLiteral(
            "Keep the tables in this file from start to stop, to serve them again after a crash or restart."),
        QStringLiteral("file"));
    return option;
}

const QCommandLineOption& verboseOption()
{
    static const QCommandLineOption option(QStringLiteral("verbose"),
                                           QStringLiteral("Also log clients and their mistakes."));
    return option;
}

const QVector<SecondsOption>& secondsOptions()
{
    static const QVector<SecondsOption> options = {
        {{QStringLiteral("stale-after"),
          QStringLiteral(
              "Registers not refreshed for so many seconds answer with exception 04; 0 keeps their "
              "last value. Default: 0."),
          QStringLiteral("seconds")},
         &ServiceOptions::staleAfter},
        {{QStringLiteral("idle-limit"),
          QStringLiteral(
              "When all places for clients are taken, a client silent for so many seconds gives its "
              "own up to a new one; 0 never. Default: 60."),
          QStringLiteral("seconds")},
         &ServiceOptions::idleLimit},
    };
    return options;
}

Invocation<ServerOptions> usage(const QString& problem)
{
    return {std::nullopt, problem + QLatin1String("\nTry 'varnel-modbus-server --help'.\n"), usageError};
}

const QCommandLineOption& statusOption()
{
    static const QCommandLineOption option(
        QStringLiteral("status-block"),
        QStringLiteral(
            "Serve four registers from this address on: the age of the data in seconds, the number of "
            "updates in two, and 1 while they come. Default: none."),
        QStringLiteral("address"));
    return option;
}

/// Reads a whole number; returns the problem, or an empty text.
QString readNumber(const QCommandLineParser& parser, const QCommandLineOption& option, int highest,
                   int* number)
{
    bool isNumber = false;
    *number = parser.value(option).toInt(&isNumber);
    if (isNumber && *number >= 0 && *number <= highest) {
        return {};
    }
    return QStringLiteral("--%1: must be a whole number from 0 to %2")
        .arg(option.names().constFirst())
        .arg(highest);
}

/// Reads the options that are numbers; returns the problem, or an empty text.
QString readNumbers(const QCommandLineParser& parser, ServiceOptions& service)
{
    for (const SecondsOption& entry : secondsOptions()) {
        if (!parser.isSet(entry.option)) {
            continue;
        }
        int seconds = 0;
        const QString problem = readNumber(parser, entry.option, maxSeconds, &seconds);
        if (!problem.isEmpty()) {
            return problem;
        }
        service.*entry.target = std::chrono::seconds(seconds);
    }
    return parser.isSet(statusOption())
               ? readNumber(parser, statusOption(), addressSpace - RegisterStore::statusLength,
                            &service.statusBlock)
               : QString();
}

} // namespace

Invocation<ServerOptions> parseCommandLine(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(description);
    // Not addHelpOption(): it adds a second option, about graphical options.
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Displays this help."));
    parser.addOption(help);
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOptions({busOption(), stateOption(), statusOption(), verboseOption()});
    for (const SecondsOption& entry : secondsOptions()) {
        parser.addOption(entry.option);
    }
    if (!parser.parse(arguments)) {
        return usage(parser.errorText());
    }
    if (parser.isSet(help)) {
        return {std::nullopt, parser.helpText(), 0};
    }
    if (parser.isSet(version)) {
        return {std::nullopt, QStringLiteral("varnel-modbus-server " VARNEL_VERSION "\n"), 0};
    }
    if (!parser.positionalArguments().isEmpty()) {
        return usage(
            QStringLiteral("Unexpected argument '%1'.").arg(parser.positionalArguments().constFirst()));
    }
    ServerOptions options;
    options.bus = parser.value(busOption());
    options.verbose = parser.isSet(verboseOption());
    options.service.stateFile = parser.value(stateOption());
    const QString problem = readNumbers(parser, options.service);
    if (!problem.isEmpty()) {
        return usage(problem);
    }
    return {options, QString(), 0};
}

} // namespace Varnel
