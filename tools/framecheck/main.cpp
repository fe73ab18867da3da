// SPDX-License-Identifier: MIT
#include <cstdio>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

#include "sources.h"
#include "toolcommandline.h"

namespace {

enum ExitCode
{
    Faultless = 0,
    Faulty = 1,
    NotChecked = 2,
};

/// The options of the program.
struct Options
{
    const QCommandLineOption hex{QStringLiteral("hex"),
                                 QStringLiteral("Read frames as hexadecimal text; \"-\" is standard input."),
                                 QStringLiteral("file")};
    const QCommandLineOption interface {
        QStringLiteral("interface"), QStringLiteral("Watch a network interface."), QStringLiteral("name")
    };
    const QCommandLineOption listen{QStringLiteral("listen"), QStringLiteral("Receive on a UDP port."),
                                    QStringLiteral("port")};
    const QCommandLineOption port{
        QStringLiteral("port"),
        QStringLiteral("Check datagrams to this UDP port, 9876 by default; 0: to every port."),
        QStringLiteral("number"), QStringLiteral("9876")};
    const QCommandLineOption timeout{
        QStringLiteral("timeout"),
        QStringLiteral(
            "Seconds without a frame after which the panel gives the link up (UdpTimeout), 10 by default."),
        QStringLiteral("seconds"), QStringLiteral("10")};
    const QCommandLineOption count{QStringLiteral("count"),
                                   QStringLiteral("Stop after so many frames; 0, the default: no end."),
                                   QStringLiteral("number"), QStringLiteral("0")};
    const QCommandLineOption fields{
        QStringLiteral("fields"),
        QStringLiteral(
            "Print the fields of all, faulty (default) or none of the frames; of hexadecimal text, all."),
        QStringLiteral("which")};
    const QCommandLineOption json{QStringLiteral("json"), QStringLiteral("Print JSON, one object a line.")};
    const QCommandLineOption quiet{{QStringLiteral("q"), QStringLiteral("quiet")},
                                   QStringLiteral("Print only the statistics.")};
};

int fail(const QString& text)
{
    QTextStream out(stderr);
    out.setCodec("UTF-8");
    out << "r7m-frame-check: " << printable(text) << '\n';
    return NotChecked;
}

/// Reads the values of the options and remembers the first that is wrong.
class Reader
{
public:
    Reader(const QCommandLineParser& commandLine, const Options& known)
        : parser(commandLine)
        , options(known)
    {
    }

    RunOptions read()
    {
        RunOptions run;
        run.port = static_cast<quint16>(number(options.port, 0, 0xFFFF));
        run.timeoutSeconds = static_cast<int>(number(options.timeout, 1, 1000000));
        run.frameLimit = number(options.count, 0, 0xFFFFFFFFLL);
        run.fields = fieldsOf();
        run.isJson = parser.isSet(options.json);
        run.isQuiet = parser.isSet(options.quiet);
        if (parser.isSet(options.listen)) {
            run.port = static_cast<quint16>(number(options.listen, 1, 0xFFFF));
        }
        return run;
    }

    QString problem;

private:
    qint64 number(const QCommandLineOption& option, qint64 lowest, qint64 highest)
    {
        bool ok = false;
        const qint64 value = parser.value(option).toLongLong(&ok);
        if (!ok || value < lowest || value > highest) {
            complain(QStringLiteral("--%1: \"%2\" is no number from %3 to %4")
                         .arg(option.names().last(), parser.value(option))
                         .arg(lowest)
                         .arg(highest));
        }
        return value;
    }

    FieldsOf fieldsOf()
    {
        const QString word = parser.value(options.fields);
        if (word.isEmpty()) {
            return parser.isSet(options.hex) ? FieldsOf::AllFrames : FieldsOf::FaultyFrames;
        }
        const QStringList words{QStringLiteral("none"), QStringLiteral("faulty"), QStringLiteral("all")};
        if (!words.contains(word)) {
            complain(QStringLiteral("--fields: \"%1\" is neither all nor faulty nor none").arg(word));
        }
        return static_cast<FieldsOf>(words.indexOf(word));
    }

    void complain(const QString& text) { problem = problem.isEmpty() ? text : problem; }

    const QCommandLineParser& parser;
    const Options& options;
};

/// Reads from the requested source. Returns an empty text, or why it had to stop.
QString readSource(const QCommandLineParser& parser, const Options& options, quint16 port, CheckRun* run)
{
    const auto about = [](const QString& source, const QString& problem) {
        return problem.isEmpty() ? QString() : source + QStringLiteral(": ") + problem;
    };
    if (parser.isSet(options.hex)) {
        const QString path = parser.value(options.hex);
        return about(path == QLatin1String("-") ? QStringLiteral("standard input") : path,
                     readHexText(path, run));
    }
    if (parser.isSet(options.interface)) {
        const QString name = parser.value(options.interface);
        return about(QStringLiteral("interface ") + name, readInterface(name, port, run));
    }
    if (parser.isSet(options.listen)) {
        return about(QStringLiteral("UDP port %1").arg(port), readPort(port, run));
    }
    const QString path = parser.positionalArguments().first();
    return about(path, readCaptureFile(path, run));
}

int check(const QCommandLineParser& parser, const Options& options, const RunOptions& runOptions)
{
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    CheckRun run(runOptions, &out);
    const QString problem = readSource(parser, options, runOptions.port, &run);
    const Statistics& counts = run.statistics();
    if (counts.frames() + counts.unreadablePackets() > 0) {
        run.finish();
    }
    if (!problem.isEmpty()) {
        return fail(problem);
    }
    if (counts.frames() == 0) {
        const QString others = counts.foreignPorts();
        return fail(QStringLiteral("no frame to check") +
                    (others.isEmpty() ? QString()
                                      : QStringLiteral(": no datagram goes to port %1, but to port %2")
                                            .arg(runOptions.port)
                                            .arg(others)));
    }
    if (!counts.isFaultless()) {
        return Faulty;
    }
    return counts.unreadablePackets() > 0 ? NotChecked : Faultless;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("r7m-frame-check"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VARNEL_VERSION));
    QCommandLineParser parser;
    const Options options;
    parser.setApplicationDescription(QStringLiteral("Shows every field of a controller's frames, the "
                                                    "panel's own log lines, and where a frame is wrong."));
    parser.addOptions({options.hex, options.interface, options.listen, options.port, options.timeout,
                       options.count, options.fields, options.json, options.quiet});
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("A capture file, pcap or pcapng."),
                                 QStringLiteral("[file]"));
    const QString problem = Varnel::readCommandLine(parser);
    if (!problem.isEmpty()) {
        return fail(problem);
    }
    const int sources = parser.positionalArguments().size() + int(parser.isSet(options.hex)) +
                        int(parser.isSet(options.interface)) + int(parser.isSet(options.listen));
    if (sources != 1) {
        return fail(QStringLiteral("give one of: a capture file, --hex, --interface, --listen; see --help"));
    }
    Reader reader(parser, options);
    const RunOptions runOptions = reader.read();
    if (!reader.problem.isEmpty()) {
        return fail(reader.problem);
    }
    return check(parser, options, runOptions);
}
