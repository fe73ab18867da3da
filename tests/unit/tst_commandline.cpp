// SPDX-License-Identifier: MIT
#include <QTest>

#include "commandline.h"

using Varnel::CommandLine;

Q_DECLARE_METATYPE(CommandLine)

/// The meaning of the options, and the effect of a wrong command line.
class tst_CommandLine : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
    void helpHasAllParts();
};

namespace {

CommandLine expected(bool verbose, const QString& device, const QString& release, bool help = false,
                     const QString& error = QString())
{
    CommandLine line;
    line.verbose = verbose;
    line.hasDevice = !device.isNull();
    line.device = device;
    line.hasRelease = !release.isNull();
    line.release = release;
    line.help = help;
    line.error = error;
    return line;
}

} // namespace

void tst_CommandLine::parse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<CommandLine>("outcome");
    const QString no;
    const QString x = QStringLiteral("X");
    const QString y = QStringLiteral("Y");
    const auto row = [](const char* name, const char* words, const CommandLine& outcome) {
        QTest::newRow(name) << QString::fromLatin1(words).split(QLatin1Char(' '), Qt::SkipEmptyParts)
                            << outcome;
    };
    row("nothing: nothing set", "", expected(false, no, no));
    row("-v: verbose", "-v", expected(true, no, no));
    row("-v twice: verbose", "-v -v", expected(true, no, no));
    row("-D X -R Y -v: all three", "-D X -R Y -v", expected(true, x, y));
    row("-v -R Y -D X: any order", "-v -R Y -D X", expected(true, x, y));
    row("-D twice: the last counts", "-D Y -D X", expected(false, x, no));
    row("-h: help", "-h", expected(false, no, no, true));
    row("--help: help", "--help", expected(false, no, no, true));
    row("-v --help: both", "-v --help", expected(true, no, no, true));
    row("--help -v: reading ends at the help", "--help -v", expected(false, no, no, true));
    row("-x: unknown", "-x", expected(false, no, no, false, QStringLiteral("Unknown argument: -x")));
    row("--verbose: no long form", "--verbose",
        expected(false, no, no, false, QStringLiteral("Unknown argument: --verbose")));
    row("a bare word: unknown", "word",
        expected(false, no, no, false, QStringLiteral("Unknown argument: word")));
    row("-V: case matters", "-V", expected(false, no, no, false, QStringLiteral("Unknown argument: -V")));
    row("-v -x: what came before holds", "-v -x",
        expected(true, no, no, false, QStringLiteral("Unknown argument: -x")));
    row("-D alone: no value", "-D",
        expected(false, no, no, false, QStringLiteral("Not defined value of the argument: -D")));
    row("-v -R: no value", "-v -R",
        expected(true, no, no, false, QStringLiteral("Not defined value of the argument: -R")));
    row("-D -v: an option is no value", "-D -v",
        expected(false, no, no, false, QStringLiteral("Not defined value of the argument: -D")));
    row("-D -5: a value with a dash that is no option", "-D -5", expected(false, QStringLiteral("-5"), no));
    row("-R %1: nothing is replaced", "-R %1", expected(false, no, QStringLiteral("%1")));
    QTest::newRow("-D with blanks: one value") << QStringList{QStringLiteral("-D"), QStringLiteral("a b")}
                                               << expected(false, QStringLiteral("a b"), no);
    QTest::newRow("-D with an empty value: set to empty")
        << QStringList{QStringLiteral("-D"), QStringLiteral("")} << expected(false, QStringLiteral(""), no);
    QTest::newRow("an empty argument: unknown")
        << QStringList{QStringLiteral("")}
        << expected(false, no, no, false, QStringLiteral("Unknown argument: "));
}

void tst_CommandLine::parse()
{
    QFETCH(QStringList, arguments);
    QFETCH(CommandLine, outcome);
    const CommandLine line = CommandLine::parse(arguments);
    QCOMPARE(line.error, outcome.error);
    QCOMPARE(line.verbose, outcome.verbose);
    QCOMPARE(line.hasDevice, outcome.hasDevice);
    QCOMPARE(line.device, outcome.device);
    QCOMPARE(line.hasRelease, outcome.hasRelease);
    QCOMPARE(line.release, outcome.release);
    QCOMPARE(line.help, outcome.help);
}

void tst_CommandLine::helpHasAllParts()
{
    const QString help = CommandLine::helpText(QStringLiteral("/usr/bin/panel %1"));
    QVERIFY2(help.startsWith(QLatin1String("Usage: /usr/bin/panel %1")), qPrintable(help));
    QVERIFY(help.contains(QLatin1String("\n\nDescription: Main application of VARNEL\n")));
    const QString list = help.section(QStringLiteral("Optional arguments:\n"), 1);
    const QStringList lines = list.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 4);
    const char* const wanted[][2] = {{"-v", "Verbose"},
                                     {"-D", "Device description"},
                                     {"-R", "Release number"},
                                     {"-h", "Print this help."}};
    for (int i = 0; i < lines.size(); ++i) {
        QVERIFY2(lines.at(i).trimmed().startsWith(QLatin1String(wanted[i][0])), qPrintable(lines.at(i)));
        QVERIFY2(lines.at(i).endsWith(QLatin1String(wanted[i][1])), qPrintable(lines.at(i)));
    }
    QVERIFY(lines.at(3).contains(QLatin1String("--help")));
    QVERIFY(help.endsWith(QLatin1Char('\n')));
}

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
