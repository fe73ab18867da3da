// SPDX-License-Identifier: MIT
// The documentation keeps up with the repository: its links lead somewhere, every log line that it quotes is
// written by the source file it names, every line that a source file writes is documented, and so is every
// option.
#include <algorithm>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QtTest>

#include "commandline.h"

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

/// A page without its code blocks and code spans, in which nothing is a link.
QString withoutCode(QString page)
{
    page.remove(QRegularExpression(QStringLiteral("^```.*?^```"),
                                   QRegularExpression::MultilineOption |
                                       QRegularExpression::DotMatchesEverythingOption));
    return page.remove(QRegularExpression(QStringLiteral("`[^`\n]*`")));
}

/// The anchors of a page: its headings in lower case, blanks as hyphens, other punctuation gone.
QStringList anchorsOf(const QString& page)
{
    static const QRegularExpression heading(QStringLiteral("^#+ (.*)$"), QRegularExpression::MultilineOption);
    static const QRegularExpression target(QStringLiteral("\\]\\([^)]*\\)"));
    static const QRegularExpression dropped(QStringLiteral("[^\\w\\- ]"),
                                            QRegularExpression::UseUnicodePropertiesOption);
    QStringList anchors;
    auto matches = heading.globalMatch(page);
    while (matches.hasNext()) {
        QString text = matches.next().captured(1).toLower().remove(target).remove(dropped);
        anchors.append(text.replace(QLatin1Char(' '), QLatin1Char('-')));
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
    static const QRegularExpression letter(QStringLiteral("[A-Za-z]"));
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
    static const QRegularExpression letter(QStringLiteral("[A-Za-z]"));
    return !piece.remove(text).contains(letter);
}

const QRegularExpression documentedValue(QStringLiteral("<[^>]*>|^varnel\\.\\w+:|\\(took <number>ms\\)"));
const QRegularExpression sourceValue(QStringLiteral("%[\\ds]"));

/// All string literals of a source text, adjoining ones joined, escapes resolved as far as they occur here.
QStringList literalsOf(const QString& source)
{
    static const QRegularExpression literal(QStringLiteral("\"((?:[^\"\\\\\n]|\\\\.)*)\""));
    static const QRegularExpression joint(QStringLiteral("\"\\s*\n\\s*\""));
    QString joined = source;
    joined.remove(joint);
    QStringList literals;
    auto matches = literal.globalMatch(joined);
    while (matches.hasNext()) {
        literals.append(matches.next().captured(1).remove(QLatin1Char('\\')));
    }
    return literals;
}

/// The literals of a source text in statements that write a line to the plain log.
QStringList loggedLiteralsOf(const QString& source)
{
    static const QRegularExpression statement(
        QStringLiteral("\\b(?:qDebug|qWarning|qCWarning|qCritical|qFatal|logLine|logCriticalLine)\\(.*?;\n"),
        QRegularExpression::DotMatchesEverythingOption);
    QStringList literals;
    auto matches = statement.globalMatch(source);
    while (matches.hasNext()) {
        literals += literalsOf(matches.next().captured());
    }
    return literals;
}

/// Every match of `word` in `text`, in order.
QStringList wordsOf(const QString& text, const QRegularExpression& word)
{
    QStringList words;
    auto matches = word.globalMatch(text);
    while (matches.hasNext()) {
        words.append(matches.next().captured());
    }
    return words;
}

} // namespace

class tst_Documentation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void linksLeadSomewhere_data();
    void linksLeadSomewhere();
    void documentedLinesAreWritten_data();
    void documentedLinesAreWritten();
    void writtenLinesAreDocumented_data();
    void writtenLinesAreDocumented();
    void tourNamesEverySource_data();
    void tourNamesEverySource();
    void manualNamesEveryOption();
    void everyLogLineHasMeaningAndAdvice_data();
    void everyLogLineHasMeaningAndAdvice();

private:
    QDir root;
};

void tst_Documentation::initTestCase()
{
    root.setPath(QFileInfo(QFINDTESTDATA("../../CMakeLists.txt")).absolutePath());
    QVERIFY(root.exists(QStringLiteral("docs/logs.md")));
}

void tst_Documentation::linksLeadSomewhere_data()
{
    QTest::addColumn<QString>("file");
    const QStringList files = filesOf(root, QStringLiteral(".md"));
    for (const QString& file : files) {
        QTest::newRow(qPrintable(file)) << file;
    }
}

void tst_Documentation::linksLeadSomewhere()
{
    QFETCH(const QString, file);
    static const QRegularExpression link(QStringLiteral("\\]\\(([^)#\\s]*)(?:#([^)\\s]*))?\\)"));
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

void tst_Documentation::documentedLinesAreWritten_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("line");
    static const QRegularExpression heading(QStringLiteral("^##+ .*\\]\\(\\.\\./(src/[\\w]+\\.cpp)\\)$"));
    static const QRegularExpression row(QStringLiteral("^\\| `([^`]+)` \\|"));
    QString source;
    const QStringList lines = read(root.filePath(QStringLiteral("docs/logs.md"))).split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        if (const auto found = heading.match(line); found.hasMatch()) {
            source = found.captured(1);
        }
        if (const auto found = row.match(line); found.hasMatch()) {
            QTest::newRow(qPrintable(source + QStringLiteral(": ") + found.captured(1)))
                << source << found.captured(1);
        }
    }
}

void tst_Documentation::documentedLinesAreWritten()
{
    QFETCH(const QString, source);
    QFETCH(const QString, line);
    QStringList written;
    const QStringList literals = literalsOf(read(root.filePath(source)));
    for (const QString& literal : literals) {
        written += pieces(literal, sourceValue);
    }
    const QStringList documented = pieces(line, documentedValue);
    for (const QString& piece : documented) {
        QVERIFY2(std::any_of(written.cbegin(), written.cend(),
                             [&piece](const QString& text) { return sameWords(piece, text); }),
                 qPrintable(piece));
    }
}

void tst_Documentation::writtenLinesAreDocumented_data()
{
    QTest::addColumn<QString>("source");
    const QStringList sources = filesOf(QDir(root.filePath(QStringLiteral("src"))), QStringLiteral(".cpp"));
    for (const QString& source : sources) {
        QTest::newRow(qPrintable(source)) << source;
    }
}

void tst_Documentation::writtenLinesAreDocumented()
{
    QFETCH(const QString, source);
    const QString page = plain(read(root.filePath(QStringLiteral("docs/logs.md"))));
    const QStringList literals = loggedLiteralsOf(read(root.filePath(QStringLiteral("src/") + source)));
    for (const QString& literal : literals) {
        const QStringList fixed = pieces(literal, sourceValue);
        for (const QString& piece : fixed) {
            QVERIFY2(page.contains(piece), qPrintable(piece));
        }
    }
}

void tst_Documentation::tourNamesEverySource_data()
{
    QTest::addColumn<QString>("source");
    const QStringList sources = filesOf(QDir(root.filePath(QStringLiteral("src"))), QStringLiteral(".cpp"));
    for (const QString& source : sources) {
        QTest::newRow(qPrintable(source)) << source;
    }
}

void tst_Documentation::tourNamesEverySource()
{
    QFETCH(const QString, source);
    const QString tour = read(root.filePath(QStringLiteral("docs/architecture.md")));
    QVERIFY(tour.contains(QStringLiteral("](../src/%1)").arg(source)));
}

void tst_Documentation::manualNamesEveryOption()
{
    static const QRegularExpression option(QStringLiteral("(?<![\\w-])--?\\w+"));
    static const QRegularExpression tag(QStringLiteral("^\\.TP\n\\.B\\w* (.*\\\\-.*)$"),
                                        QRegularExpression::MultilineOption);
    QStringList inManual;
    auto tags = tag.globalMatch(read(root.filePath(QStringLiteral("docs/man/varnel-browser.1"))));
    while (tags.hasNext()) {
        inManual += wordsOf(tags.next().captured(1).remove(QLatin1Char('\\')), option);
    }
    QStringList inHelp = wordsOf(CommandLine::helpText(QStringLiteral("panel")), option);
    inHelp.removeDuplicates();
    QCOMPARE(inHelp.size(), 5);
    QCOMPARE(inManual, inHelp);
}

void tst_Documentation::everyLogLineHasMeaningAndAdvice_data()
{
    QTest::addColumn<QString>("row");
    const QStringList lines = read(root.filePath(QStringLiteral("docs/logs.md"))).split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        if (line.startsWith(QLatin1String("| `"))) {
            QTest::newRow(qPrintable(line)) << line;
        }
    }
}

void tst_Documentation::everyLogLineHasMeaningAndAdvice()
{
    QFETCH(const QString, row);
    static const QRegularExpression full(
        QStringLiteral("^\\| `[^`]+` \\| [^|]*\\w[^|]* \\| [^|]*\\w[^|]* \\|$"));
    QVERIFY(full.match(row).hasMatch());
}

QTEST_APPLESS_MAIN(tst_Documentation)
#include "tst_documentation.moc"
