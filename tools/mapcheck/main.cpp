// SPDX-License-Identifier: MIT
#include <cstdio>
#include <optional>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryFile>
#include <QTextStream>

#include "mapchecker.h"
#include "modbusinterface.h"
#include "registerlist.h"
#include "toolcommandline.h"

using Varnel::ModbusInterface;

namespace {

enum ExitCode
{
    Fine = 0,
    Faulty = 1,
    NotChecked = 2,
};

/// The options of the program.
struct Options
{
    const QCommandLineOption list{{QStringLiteral("l"), QStringLiteral("list")},
                                  QStringLiteral("Print the registers as a table.")};
    const QCommandLineOption csv{{QStringLiteral("c"), QStringLiteral("csv")},
                                 QStringLiteral("Print the registers as comma-separated values.")};
    const QCommandLineOption mbpoll{{QStringLiteral("m"), QStringLiteral("mbpoll")},
                                    QStringLiteral("Print mbpoll commands that read all registers.")};
    const QCommandLineOption host{QStringLiteral("host"), QStringLiteral("Host of the mbpoll commands."),
                                  QStringLiteral("name"), QStringLiteral("192.168.1.2")};
    const QCommandLineOption port{QStringLiteral("port"), QStringLiteral("TCP port of the mbpoll commands."),
                                  QStringLiteral("number"), QStringLiteral("502")};
    const QCommandLineOption serial{
        QStringLiteral("serial"), QStringLiteral("Use a serial line in the mbpoll commands instead of TCP."),
        QStringLiteral("device")};
    const QCommandLineOption baud{QStringLiteral("baud"), QStringLiteral("Baud rate of the serial line."),
                                  QStringLiteral("rate"), QStringLiteral("19200")};
    const QCommandLineOption unit{QStringLiteral("unit"), QStringLiteral("Unit id of the server."),
                                  QStringLiteral("number"), QStringLiteral("1")};
    const QCommandLineOption strict{{QStringLiteral("s"), QStringLiteral("strict")},
                                    QStringLiteral("Take warnings for errors.")};
    const QCommandLineOption quiet{{QStringLiteral("q"), QStringLiteral("quiet")},
                                   QStringLiteral("Print no findings and no summary.")};
    const QCommandLineOption verbose{QStringLiteral("verbose"),
                                     QStringLiteral("Print the log of the panel's loader.")};
};

bool isVerbose = false;

/// Writes one line to standard error.
void complain(const QString& line)
{
    QTextStream out(stderr);
    out.setCodec("UTF-8");
    out << line << '\n';
}

/// Shows only warnings of the loader; its other log lines repeat the whole file.
void writeLog(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (isVerbose || type != QtDebugMsg) {
        complain(text);
    }
}

int fail(const QString& text)
{
    complain(QStringLiteral("modbus-map-check: ") + text);
    return NotChecked;
}

ServerAddress serverAddress(const QCommandLineParser& parser, const Options& options)
{
    const QStringList unit{QStringLiteral("-a"), parser.value(options.unit)};
    if (parser.isSet(options.serial)) {
        return {parser.value(options.serial), QStringList{QStringLiteral("-m"), QStringLiteral("rtu"),
                                                          QStringLiteral("-b"), parser.value(options.baud)} +
                                                  unit};
    }
    return {parser.value(options.host), QStringList{QStringLiteral("-m"), QStringLiteral("tcp"),
                                                    QStringLiteral("-p"), parser.value(options.port)} +
                                            unit};
}

void printFindings(const QString& path, const MapChecker& checker)
{
    for (const Finding& finding : checker.findings()) {
        const auto severity =
            QLatin1String(finding.severity == Finding::Severity::Error ? "error" : "warning");
        complain(path + QStringLiteral(":%1: ").arg(finding.line) + severity + QLatin1String(": ") +
                 finding.text);
    }
}

void printSummary(const QString& path, const ModbusInterface& bridge, const QVector<RegisterRow>& rows,
                  const MapChecker& checker)
{
    int words = 0;
    QSet<int> registers;
    for (const RegisterRow& row : rows) {
        words += row.words;
        registers.insert(row.isDefined ? row.id : 0);
    }
    registers.remove(0);
    complain(path + QStringLiteral(": %1 registers in %2 tables, %3 words, %4 errors, %5 warnings")
                        .arg(registers.size())
                        .arg(bridge.GetTableList().size())
                        .arg(words)
                        .arg(checker.count(Finding::Severity::Error))
                        .arg(checker.count(Finding::Severity::Warning)));
}

void printLists(const QCommandLineParser& parser, const Options& options, const QVector<RegisterRow>& rows)
{
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    if (parser.isSet(options.list)) {
        out << asTable(rows);
    }
    if (parser.isSet(options.csv)) {
        out << asCsv(rows, parser.value(options.unit));
    }
    if (parser.isSet(options.mbpoll)) {
        out << asMbpoll(rows, serverAddress(parser, options)).join(QLatin1Char('\n')) << '\n';
    }
}

/// The error in the options that are numbers; empty when there is none.
QString wrongNumber(const QCommandLineParser& parser, const Options& options)
{
    const struct
    {
        const QCommandLineOption& option;
        uint lowest;
        uint highest;
    } numbers[] = {{options.port, 1, 65535}, {options.baud, 1, 4000000}, {options.unit, 0, 255}};
    for (const auto& number : numbers) {
        const QString text = parser.value(number.option);
        bool ok = false;
        const uint value = text.toUInt(&ok);
        if (!ok || value < number.lowest || value > number.highest) {
            return QStringLiteral("--%1: \"%2\" is no number from %3 to %4")
                .arg(number.option.names().last(), text)
                .arg(number.lowest)
                .arg(number.highest);
        }
    }
    return {};
}

/// The mapping's text; none, with the reason in `problem`, if it cannot be read. "-" is standard input.
std::optional<QByteArray> readMapping(const QString& path, QString* problem)
{
    QFile file(path);
    const bool isOpen =
        path == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    const QByteArray text = isOpen ? file.readAll() : QByteArray();
    if (!isOpen || file.error() != QFileDevice::NoError) {
        *problem = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    return text;
}

/// Lets the panel's loader read `path`, or a copy of `text` where the path can be read only once. The checker
/// reports what stops the loader, with a line number.
bool load(ModbusInterface* bridge, const QString& path, const QByteArray& text)
{
    if (QFileInfo(path).isFile()) {
        std::ignore = bridge->LoadConfig(path);
        return true;
    }
    QTemporaryFile copy;
    if (!copy.open() || copy.write(text) != text.size() || !copy.flush()) {
        return false;
    }
    std::ignore = bridge->LoadConfig(copy.fileName());
    return true;
}

int run(const QCommandLineParser& parser, const Options& options)
{
    const QString file = parser.positionalArguments().first();
    QString problem;
    const std::optional<QByteArray> text = readMapping(file, &problem);
    if (!text) {
        return fail(problem);
    }
    const QString path = file == QLatin1String("-") ? QStringLiteral("standard input") : file;
    ModbusInterface bridge;
    if (!load(&bridge, file, *text)) {
        return fail(QStringLiteral("cannot write a copy of %1 to %2").arg(path, QDir::tempPath()));
    }
    const QVector<RegisterRow> rows =
        registerRows(bridge); // before the checker renders: a lookup adds an entry
    const MapChecker checker(*text, &bridge);
    printLists(parser, options, rows);
    if (!parser.isSet(options.quiet)) {
        printFindings(path, checker);
        printSummary(path, bridge, rows, checker);
    }
    const bool isFaulty = checker.count(Finding::Severity::Error) > 0 ||
                          (parser.isSet(options.strict) && checker.count(Finding::Severity::Warning) > 0);
    return isFaulty ? Faulty : Fine;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("modbus-map-check"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VARNEL_VERSION));
    QCommandLineParser parser;
    const Options options;
    parser.setApplicationDescription(QStringLiteral("Checks a Modbus mapping file of the panel."));
    parser.addOptions({options.list, options.csv, options.mbpoll, options.host, options.port, options.serial,
                       options.baud, options.unit, options.strict, options.quiet, options.verbose});
    parser.addPositionalArgument(QStringLiteral("file"),
                                 QStringLiteral("The mapping file; \"-\" is standard input."));
    const QString problem = Varnel::readCommandLine(parser);
    if (!problem.isEmpty()) {
        return fail(problem);
    }
    if (parser.positionalArguments().size() != 1) {
        return fail(QStringLiteral("one mapping file has to be given, see --help"));
    }
    const QString wrong = wrongNumber(parser, options);
    if (!wrong.isEmpty()) {
        return fail(wrong);
    }
    isVerbose = parser.isSet(options.verbose);
    qInstallMessageHandler(writeLog);
    return run(parser, options);
}
