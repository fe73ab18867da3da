// SPDX-License-Identifier: MIT
// The documentation keeps up with the repository: its links lead somewhere, every log line that it quotes is
// written by the source file it names, every line that a source file writes is documented, and so is every
// option.
#include <algorithm>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>

#include "commandline.h"
#include "literals.h"
#include "rows.h"

using namespace Varnel;

namespace {

QString read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/// The files of the repository whose names end in `suffix`, as paths from its root; build trees left out.
QStringList filesOf(const QDir& root, const QString& suffix)
{
    QStringList files;
    QDirIterator entries(root.path(), {QLatin1Char('*') + suffix}, QDir::Files, QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = root.relativeFilePath(entries.next());
        if (!path.startsWith(QLatin1String("build")) && !path.contains(QLatin1String("_autogen/"))) {
            files.append(path);
        }
    }
    files.sort();
    return files;
}

/// Every match of `pattern` in `text`, or what it captures there, in order.
QStringList matchesOf(const QRegularExpression& pattern, const QString& text, int capture = 0)
{
    QStringList found;
    auto matches = pattern.globalMatch(text);
    while (matches.hasNext()) {
        found.append(matches.next().captured(capture));
    }
    return found;
}

/// A page without its code blocks and code spans, in which nothing is a link.
QString withoutCode(QString page)
{
    page.remove(QRegularExpression("^```.*?^```"_s, QRegularExpression::MultilineOption |
                                                        QRegularExpression::DotMatchesEverythingOption));
    return page.remove(QRegularExpression("`[^`\n]*`"_s));
}

/// The anchors of a page: its headings in lower case, blanks as hyphens, other punctuation gone.
QStringList anchorsOf(const QString& page)
{
    static const QRegularExpression heading("^#+ (.*)$"_s, QRegularExpression::MultilineOption);
    static const QRegularExpression target("\\]\\([^)]*\\)"_s);
    static const QRegularExpression dropped("[^\\w\\- ]"_s, QRegularExpression::UseUnicodePropertiesOption);
    QStringList anchors = matchesOf(heading, page, 1);
    for (QString& text : anchors) {
        text = text.toLower().remove(target).remove(dropped).replace(QLatin1Char(' '), QLatin1Char('-'));
    }
    return anchors;
}

/// Fixed words as they can be compared: no quotes, runs of white space as one blank, none at the ends.
QString plain(QString text)
{
    return text.remove(QLatin1Char('"')).simplified();
}

/// The fixed pieces of a text between the places that `hole` matches; those without a letter are left out.
QStringList pieces(const QString& text, const QRegularExpression& hole)
{
    static const QRegularExpression letter("[A-Za-z]"_s);
    QStringList result;
    const QStringList parts = text.split(hole);
    for (const QString& part : parts) {
        if (part.contains(letter)) {
            result.append(plain(part));
        }
    }
    return result;
}

/// True when `piece` is `text` but for brackets and other punctuation, which the stream takes from literals
/// of their own.
bool sameWords(QString piece, const QString& text)
{
    static const QRegularExpression letter("[A-Za-z]"_s);
    return !piece.remove(text).contains(letter);
}

const QRegularExpression documentedValue("<[^>]*>|^varnel\\.\\w+:|\\(took <number>ms\\)"_s);
const QRegularExpression sourceValue("%[\\ds]"_s);

/// All string literals of a source text, adjoining ones joined, escapes resolved as far as they occur here.
QStringList literalsOf(const QString& source)
{
    static const QRegularExpression literal("\"((?:[^\"\\\\\n]|\\\\.)*)\""_s);
    static const QRegularExpression joint("\"\\s*\n\\s*\""_s);
    QString joined = source;
    joined.remove(joint);
    return matchesOf(literal, joined, 1).replaceInStrings("\\"_s, QString());
}

/// The literals of a source text in statements that write a line to the plain log.
QStringList loggedLiteralsOf(const QString& source)
{
    static const QRegularExpression statement(
        "\\b(?:qDebug|qWarning|qCWarning|qCritical|qFatal|log(?:Critical)?(?:Line|Stamped))\\(.*?;\n"_s,
        QRegularExpression::DotMatchesEverythingOption);
    QStringList literals;
    const QStringList statements = matchesOf(statement, source);
    for (const QString& text : statements) {
        literals += literalsOf(text);
    }
    return literals;
}

} // namespace

class tst_Documentation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        root.setPath(QFileInfo(QFINDTESTDATA("../../CMakeLists.txt")).absolutePath());
        QVERIFY(root.exists("docs/logs.md"_s));
    }

    void linksLeadSomewhere_data()
    {
        const Rows<QString> row("file");
        const QStringList files = filesOf(root, ".md"_s);
        for (const QString& file : files) {
            row(qPrintable(file), file);
        }
    }

    void linksLeadSomewhere()
    {
        QFETCH(const QString, file);
        static const QRegularExpression link("\\]\\(([^)#\\s]*)(?:#([^)\\s]*))?\\)"_s);
        const QDir folder = QFileInfo(root.filePath(file)).dir();
        auto matches = link.globalMatch(withoutCode(read(root.filePath(file))));
        while (matches.hasNext()) {
            const auto match = matches.next();
            const QString target = match.captured(1);
            if (target.contains(QLatin1String("://"))) {
                continue;
            }
            const QString path = target.isEmpty() ? root.filePath(file) : folder.filePath(target);
            QVERIFY2(QFileInfo::exists(path), qPrintable(target));
            const QString anchor = match.captured(2);
            QVERIFY2(anchor.isEmpty() || anchorsOf(read(path)).contains(anchor), qPrintable(anchor));
        }
    }

    void documentedLinesAreWritten_data()
    {
        const Rows<QString, QString> row("source", "row");
        static const QRegularExpression heading("^##+ .*\\]\\(\\.\\./(src/[\\w]+\\.cpp)\\)$"_s);
        QString source;
        const QStringList lines = read(root.filePath("docs/logs.md"_s)).split(QLatin1Char('\n'));
        for (const QString& line : lines) {
            if (const auto found = heading.match(line); found.hasMatch()) {
                source = found.captured(1);
            }
            if (line.startsWith("| `"_s)) {
                row(qPrintable(source + ": "_s + line), source, line);
            }
        }
    }

    void documentedLinesAreWritten()
    {
        QFETCH(const QString, source);
        QFETCH(const QString, row);
        static const QRegularExpression lineMeaningAdvice(
            "^\\| `([^`]+)` \\| [^|]*\\w[^|]* \\| [^|]*\\w[^|]* \\|$"_s);
        const auto match = lineMeaningAdvice.match(row);
        QVERIFY(match.hasMatch());
        QStringList written;
        const QStringList literals = literalsOf(read(root.filePath(source)));
        for (const QString& literal : literals) {
            written += pieces(literal, sourceValue);
        }
        const QStringList documented = pieces(match.captured(1), documentedValue);
        for (const QString& piece : documented) {
            QVERIFY2(std::any_of(written.cbegin(), written.cend(),
                                 [&piece](const QString& text) { return sameWords(piece, text); }),
                     qPrintable(piece));
        }
    }

    void everySourceIsDocumented_data()
    {
        const Rows<QString> row("source");
        const QStringList sources = filesOf(QDir(root.filePath("src"_s)), ".cpp"_s);
        for (const QString& source : sources) {
            row(qPrintable(source), source);
        }
    }

    void everySourceIsDocumented()
    {
        QFETCH(const QString, source);
        const QString tour = read(root.filePath("docs/architecture.md"_s));
        QVERIFY(tour.contains("](../src/%1)"_s.arg(source)));
        const QString page = plain(read(root.filePath("docs/logs.md"_s)));
        const QStringList literals = loggedLiteralsOf(read(root.filePath("src/"_s + source)));
        for (const QString& literal : literals) {
            const QStringList fixed = pieces(literal, sourceValue);
            for (const QString& piece : fixed) {
                QVERIFY2(page.contains(piece), qPrintable(piece));
            }
        }
    }

    void manualNamesEveryOption()
    {
        static const QRegularExpression option("(?<![\\w-])--?\\w+"_s);
        static const QRegularExpression tag("^\\.TP\n\\.B\\w* (.*\\\\-.*)$"_s,
                                            QRegularExpression::MultilineOption);
        const QString manual = read(root.filePath("docs/man/varnel-browser.1"_s));
        const QString tags = matchesOf(tag, manual, 1).join(QLatin1Char(' ')).remove(QLatin1Char('\\'));
        QStringList inHelp = matchesOf(option, CommandLine::helpText("panel"_s));
        inHelp.removeDuplicates();
        QCOMPARE(inHelp.size(), 5);
        QCOMPARE(matchesOf(option, tags), inHelp);
    }

private:
    QDir root;
};

QTEST_APPLESS_MAIN(tst_Documentation)
#include "tst_documentation.moc"
