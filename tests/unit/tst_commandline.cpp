// SPDX-License-Identifier: MIT
#include <QRegularExpression>

#include "commandline.h"
#include "literals.h"
#include "rows.h"

using Varnel::CommandLine;

namespace {

/// The options that lead to the present values, with an error at the end.
QStringList spelled(const CommandLine& line)
{
    QStringList words;
    if (line.verbose) {
        words << "-v"_s;
    }
    if (line.hasDevice) {
        words << "-D"_s << line.device;
    }
    if (line.hasRelease) {
        words << "-R"_s << line.release;
    }
    if (line.help) {
        words << "-h"_s;
    }
    if (!line.error.isEmpty()) {
        words << line.error;
    }
    return words;
}

} // namespace

/// The meaning of the options, and the effect of a wrong command line.
class tst_CommandLine : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        const Rows<QStringList, QStringList> row("arguments", "outcome");
        const auto unknown = [](const QString& word) { return QStringList{"Unknown argument: "_s + word}; };
        const QString noValue = "Not defined value of the argument: "_s;
        row("nothing: nothing set", {}, {});
        row("-v twice: verbose", "-v -v"_words, "-v"_words);
        row("-v -R Y -D X: any order", "-v -R Y -D X"_words, "-v -D X -R Y"_words);
        row("-D twice: the last counts", "-D Y -D X"_words, "-D X"_words);
        row("-h: help", "-h"_words, "-h"_words);
        row("-v --help: both", "-v --help"_words, "-v -h"_words);
        row("--help -v: reading ends at the help", "--help -v"_words, "-h"_words);
        row("--verbose: no long form", "--verbose"_words, unknown("--verbose"_s));
        row("a bare word: unknown", "word"_words, unknown("word"_s));
        row("-V: case matters", "-V"_words, unknown("-V"_s));
        row("-v -x: what came before holds", "-v -x"_words, "-v"_words + unknown("-x"_s));
        row("an empty argument: unknown", {""_s}, unknown({}));
        row("-D alone: no value", "-D"_words, {noValue + "-D"_s});
        row("-v -R: no value", "-v -R"_words, {"-v"_s, noValue + "-R"_s});
        row("-D -v: an option is no value", "-D -v"_words, {noValue + "-D"_s});
        row("-D -5: a value with a dash that is no option", "-D -5"_words, "-D -5"_words);
        row("-R %1: nothing is replaced", "-R %1"_words, "-R %1"_words);
        row("-D with blanks: one value", {"-D"_s, "a b"_s}, {"-D"_s, "a b"_s});
        row("-D with an empty value: set to empty", {"-D"_s, ""_s}, {"-D"_s, ""_s});
    }

    void parse()
    {
        QFETCH(QStringList, arguments);
        QTEST(spelled(CommandLine::parse(arguments)), "outcome");
    }

    void help()
    {
        const QStringList lines = CommandLine::helpText("/usr/bin/panel %1"_s).split(QLatin1Char('\n'));
        QVERIFY2(lines.at(0).startsWith("Usage: /usr/bin/panel %1"_s), qPrintable(lines.at(0)));
        QVERIFY(lines.contains("Description: Main application of VARNEL"_s));
        const QStringList options = lines.mid(lines.indexOf("Optional arguments:"_s) + 1);
        QCOMPARE(options.size(), 5);
        const char* const patterns[] = {"^ *-v\\b.*Verbose$", "^ *-D\\b.*Device description$",
                                        "^ *-R\\b.*Release number$", "^ *-h\\b.*--help.*Print this help\\.$",
                                        "^$"};
        for (int i = 0; i < options.size(); ++i) {
            const QRegularExpression pattern(QString::fromLatin1(patterns[i]));
            QVERIFY2(pattern.match(options.at(i)).hasMatch(), qPrintable(options.at(i)));
        }
    }
};

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
