// SPDX-License-Identifier: MIT
#include "options.h"

#include "framefaults.h"
#include "httpfaults.h"
#include "simulation.h"
#include "wirelayout.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QHostInfo>

#include <algorithm>

namespace Simulator {

namespace {

struct Switch
{
    const char* name;
    const char* value; ///< name of the value in the help; null for a plain switch
    const char* help;
};

constexpr Switch switches[] = {
    {"http", "ADDR:PORT", "Serve HTTP here (default 0.0.0.0:80; port 0: any free port, see the ready line)."},
    {"target", "ADDR:PORT", "Send frames here (default 127.0.0.1:9876)."},
    {"broadcast", nullptr,
     "Send frames to the broadcast address of the network that the source address belongs to; the port is "
     "that of --target."},
    {"source", "ADDR",
     "Send frames from this local address (default: the address of --http). The panel opens the page at the "
     "address its frames come from."},
    {"interval", "MS", "Time between frames in milliseconds (default 1000)."},
    {"count", "N", "Send N frames, then none (default 0: no end). HTTP goes on."},
    {"sections", "LIST",
     "Sections of each frame, separated by commas: devinfo, gpiostate, netcfg, snmpcfg, modbuscfg, core "
     "(default: all; core only with values). \"none\" sends no frames until the action resume."},
    {"set", "PATH=VALUE", "Start with this field, e.g. gpiostate.good=slow; may be repeated."},
    {"map", "FILE", "Fill the Core section with changing values for this register mapping file."},
    {"login", "NAME", "Login of the web site (default admin; empty: no login)."},
    {"password", "TEXT", "Password of the web site (default admin)."},
    {"page", "NAME", "The page /index.html: board (control board, default) or plain (still picture)."},
    {"upload-dir", "DIR", "Store uploaded files here (default: only measure them)."},
    {"scenario", "FILE",
     "Play the timed steps of this JSON file, or of one that came with the program (such as link-loss)."},
    {"record", "FILE", "Write the frames that are sent into this capture file (pcap)."},
    {"replay", "FILE",
     "Send the frames of this capture (pcap, pcapng) in their own time instead of frames of its own, and "
     "serve "
     "the pages that the capture holds."},
    {"replay-port", "PORT", "The UDP port of the frames in the capture (default 9876)."},
    {"speed", "N", "Replay N times as fast (default 1; 0.01 to 1000)."},
    {"do", "ACTION", "Do this action at the start; may be repeated."},
    {"stdin", nullptr, "Read actions from standard input, one a line."},
    {"log", nullptr, "Write each frame, request and action to standard output, one JSON object a line."},
};

QString helpText(const QCommandLineParser& parser)
{
    QString text = parser.helpText();
    text += QStringLiteral("\nActions (for --do, --stdin, scenario steps and /control?do=...):\n");
    for (const ActionHelp& action : actionHelp()) {
        text += QStringLiteral("  %1\n      %2\n")
                    .arg(QLatin1String(action.usage), QLatin1String(action.meaning));
    }
    text += QStringLiteral("\nFrame faults (action \"fault\"):\n");
    for (const FrameFault& fault : frameFaults()) {
        text +=
            QStringLiteral("  %1 %2\n").arg(QLatin1String(fault.name), -16).arg(QLatin1String(fault.meaning));
    }
    text += QStringLiteral("\nHTTP faults (action \"http\", and the pages /odd/FAULT):\n");
    for (const HttpFaultKind& fault : httpFaultKinds()) {
        text +=
            QStringLiteral("  %1 %2\n").arg(QLatin1String(fault.name), -16).arg(QLatin1String(fault.meaning));
    }
    text += QStringLiteral(
        "\nWhen everything is open, one line beginning with \"listening\" is written to standard "
        "output.\nSIGTERM and SIGINT end the program.\n");
    return text;
}

/// Reads the values of a parsed command line one by one and remembers the first that is wrong.
class Reader
{
public:
    explicit Reader(const QCommandLineParser& commandLine)
        : parser(commandLine)
    {
    }

    void endpoint(const char* name, QHostAddress& address, quint16& port)
    {
        const QString text = parser.value(QLatin1String(name));
        if (text.isEmpty()) {
            return;
        }
        bool ok = false;
        const uint number = text.section(QLatin1Char(':'), 1).toUInt(&ok);
        const QString host = text.section(QLatin1Char(':'), 0, 0);
        QHostAddress read;
        if (!ok || number > 0xFFFF || host.isEmpty()) {
            return complain(name, text, "is not ADDR:PORT");
        }
        if (!readAddress(host, read)) {
            return complain(name, host, "has no IPv4 address");
        }
        address = read;
        port = static_cast<quint16>(number);
    }

    void address(const char* name, QHostAddress& address)
    {
        const QString text = parser.value(QLatin1String(name));
        if (!text.isEmpty() && !readAddress(text, address)) {
            complain(name, text, "has no IPv4 address");
        }
    }

    double factor(const char* name, double fallback, double lowest, double highest)
    {
        bool ok = false;
        const QString text = parser.value(QLatin1String(name));
        const double read = text.toDouble(&ok);
        if (text.isEmpty() || (ok && read >= lowest && read <= highest)) {
            return text.isEmpty() ? fallback : read;
        }
        complain(name, text, "is not a number in range");
        return fallback;
    }

    /// Only one of the two options can be used.
    void exclude(const char* name, const char* other)
    {
        if (error.isEmpty() && parser.isSet(QLatin1String(name)) && parser.isSet(QLatin1String(other))) {
            error = QStringLiteral("--%1 and --%2 exclude each other")
                        .arg(QLatin1String(name), QLatin1String(other));
        }
    }

    qint64 number(const char* name, qint64 fallback, qint64 lowest, qint64 highest)
    {
        if (!parser.isSet(QLatin1String(name))) {
            return fallback;
        }
        bool ok = false;
        const qint64 read = parser.value(QLatin1String(name)).toLongLong(&ok);
        if (ok && read >= lowest && read <= highest) {
            return read;
        }
        complain(name, parser.value(QLatin1String(name)), "is not a number in range");
        return fallback;
    }

    QString text(const char* name, const QString& fallback = QString())
    {
        return parser.isSet(QLatin1String(name)) ? parser.value(QLatin1String(name)) : fallback;
    }

    void complain(const char* name, const QString& value, const char* problem)
    {
        if (error.isEmpty()) {
            error = QStringLiteral("--%1: \"%2\" %3").arg(QLatin1String(name), value, QLatin1String(problem));
        }
    }

    QString error;

private:
    static bool readAddress(const QString& text, QHostAddress& address)
    {
        // QHostAddress would also take "1.2", which is meant for something else.
        if (text.count(QLatin1Char('.')) == 3 && address.setAddress(text)) {
            return address.protocol() == QAbstractSocket::IPv4Protocol;
        }
        const bool isName = std::any_of(text.begin(), text.end(), [](QChar c) { return c.isLetter(); });
        const QList<QHostAddress> found =
            isName ? QHostInfo::fromName(text).addresses() : QList<QHostAddress>();
        const auto first = std::find_if(found.begin(), found.end(), [](const QHostAddress& one) {
            return one.protocol() == QAbstractSocket::IPv4Protocol;
        });
        address = first != found.end() ? *first : QHostAddress();
        return !address.isNull();
    }

    const QCommandLineParser& parser;
};

void readSections(Reader& reader, SimulatorOptions& options)
{
    const QString list = reader.text("sections");
    options.startSilent = list == QLatin1String("none");
    if (options.startSilent) {
        return;
    }
    options.sections = list.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString& name : qAsConst(options.sections)) {
        if (!knownSections().contains(name)) {
            reader.complain("sections", name, "is no section");
        }
    }
}

SimulatorOptions readOptions(Reader& reader, const QCommandLineParser& parser)
{
    SimulatorOptions options;
    reader.endpoint("http", options.httpAddress, options.httpPort);
    reader.endpoint("target", options.target, options.targetPort);
    reader.address("source", options.source);
    options.intervalMs = static_cast<int>(reader.number("interval", options.intervalMs, 1, 3600000));
    options.frameLimit = reader.number("count", 0, 0, 0xFFFFFFFFLL);
    options.login = reader.text("login", options.login);
    options.password = reader.text("password", options.password);
    options.page = reader.text("page", options.page);
    options.map = reader.text("map");
    options.scenario = reader.text("scenario");
    options.record = reader.text("record");
    options.replay = reader.text("replay");
    options.replayPort = static_cast<quint16>(reader.number("replay-port", options.replayPort, 1, 0xFFFF));
    options.speed = reader.factor("speed", options.speed, 0.01, 1000);
    for (const char* own : {"map", "set", "sections", "interval", "count"}) {
        reader.exclude("replay", own);
    }
    options.uploadDirectory = reader.text("upload-dir");
    if (!options.uploadDirectory.isEmpty() && !QFileInfo(options.uploadDirectory).isDir()) {
        reader.complain("upload-dir", options.uploadDirectory, "is not a directory");
    }
    readSections(reader, options);
    const QStringList fields = parser.values(QStringLiteral("set"));
    for (const QString& field : fields) {
        options.actions.append(QStringLiteral("set \"%1\"").arg(field));
    }
    options.actions += parser.values(QStringLiteral("do"));
    options.broadcast = parser.isSet(QStringLiteral("broadcast"));
    options.log = parser.isSet(QStringLiteral("log"));
    options.readInput = parser.isSet(QStringLiteral("stdin"));
    return options;
}

Varnel::Invocation<SimulatorOptions> fail(const QString& problem)
{
    return {std::nullopt, QStringLiteral("r7m-simulator: %1\n").arg(problem), 1};
}

} // namespace

QStringList knownSections()
{
    QStringList names;
    for (const SectionLayout& layout : sectionLayouts()) {
        names.append(QLatin1String(layout.name));
    }
    return names << QStringLiteral("core"); // the last one: its decoder takes everything that follows
}

Varnel::Invocation<SimulatorOptions> parseOptions(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Simulated R7M controller: sends RLP frames by UDP, serves a control board by HTTP, and "
        "misbehaves on request."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("Show the version."));
    for (const Switch& entry : switches) {
        parser.addOption({QLatin1String(entry.name), QLatin1String(entry.help),
                          entry.value != nullptr ? QLatin1String(entry.value) : QString()});
    }
    parser.addOptions({help, version});
    if (!parser.parse(arguments)) {
        return fail(parser.errorText());
    }
    if (parser.isSet(help)) {
        return {std::nullopt, helpText(parser), 0};
    }
    if (parser.isSet(version)) {
        return {std::nullopt, QStringLiteral("r7m-simulator " VARNEL_VERSION "\n"), 0};
    }
    if (!parser.positionalArguments().isEmpty()) {
        return fail(QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first()));
    }
    Reader reader(parser);
    const SimulatorOptions options = readOptions(reader, parser);
    if (!reader.error.isEmpty()) {
        return fail(reader.error);
    }
    return {options, {}, 0};
}

} // namespace Simulator
