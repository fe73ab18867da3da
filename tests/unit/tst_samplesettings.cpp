// SPDX-License-Identifier: MIT
// The settings' homes agree: the table in the code, the sample file that a device image ships, and the
// reference in the documentation and its manual page.
#include <QFile>
#include <QHash>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include "settingsaccess.h"

using namespace Varnel;

namespace {

/// One key as text, so that a mismatch can be read in the test's output.
struct Line
{
    QString name; ///< group/key
    QString type;
    QString value;
};

QString read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/// The word for a type in the documentation.
QString typeWord(int type)
{
    static const QHash<int, QString> words{
        {QMetaType::QString, QStringLiteral("text")}, {QMetaType::Bool, QStringLiteral("flag")},
        {QMetaType::Int, QStringLiteral("s32")},      {QMetaType::UShort, QStringLiteral("u16")},
        {QMetaType::UInt, QStringLiteral("u32")},     {QMetaType::ULongLong, QStringLiteral("u64")},
    };
    return words.value(type);
}

/// The keys of the code's own table. No settings file is loaded here, so they have their defaults.
QVector<Line> codeLines()
{
    QVector<Line> lines;
    for (const Settings::Entry& entry : Settings::entries()) {
        const QVariant value = entry.value();
        lines.append({nameOf(entry), typeWord(value.userType()), value.toString()});
    }
    return lines;
}

/// The keys of the reference: rows "| `Key` | type | `default` | ..." under a heading "### [Group]".
QVector<Line> documentedLines(const QString& page)
{
    static const QRegularExpression heading(QStringLiteral("^### \\[(\\w+)\\]$"));
    static const QRegularExpression row(
        QStringLiteral("^\\| `(\\w+)` \\| (\\w+) \\| (?:`([^`]+)`|empty) \\|"));
    QVector<Line> lines;
    QString group;
    const QStringList pageLines = page.split(QLatin1Char('\n'));
    for (const QString& text : pageLines) {
        if (text.startsWith(QLatin1String("## "))) {
            group.clear();
        }
        if (const auto found = heading.match(text); found.hasMatch()) {
            group = found.captured(1);
        }
        if (const auto found = row.match(text); found.hasMatch() && !group.isEmpty()) {
            lines.append(
                {group + QLatin1Char('/') + found.captured(1), found.captured(2), found.captured(3)});
        }
    }
    return lines;
}

/// The keys of the manual page: tags of the form ".BR Key " (type, default value)"" under ".SH "GROUP
/// [Group]"".
QVector<Line> manualLines(QString page)
{
    static const QRegularExpression heading(QStringLiteral("^\\.SH \"GROUP \\[(\\w+)\\]\"$"));
    static const QRegularExpression tag(
        QStringLiteral("^\\.BR (\\w+) \" \\((\\w+), default (?:empty|(.+))\\)\"$"));
    QVector<Line> lines;
    QString group;
    const QStringList pageLines =
        page.replace(QLatin1String("\\-"), QLatin1String("-")).split(QLatin1Char('\n'));
    for (const QString& text : pageLines) {
        if (const auto found = heading.match(text); found.hasMatch()) {
            group = found.captured(1);
        }
        if (const auto found = tag.match(text); found.hasMatch()) {
            lines.append(
                {group + QLatin1Char('/') + found.captured(1), found.captured(2), found.captured(3)});
        }
    }
    return lines;
}

void compare(const QVector<Line>& documented)
{
    const QVector<Line> expected = codeLines();
    for (int i = 0; i < qMin(expected.size(), documented.size()); ++i) {
        QCOMPARE(documented[i].name, expected[i].name);
        QCOMPARE(documented[i].type, expected[i].type);
        QCOMPARE(documented[i].value, expected[i].value);
    }
    QCOMPARE(documented.size(), expected.size());
}

} // namespace

class tst_SampleSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void sampleHoldsEveryKeyCommentedOut();
    void sampleUncommentedReadsAsTheDefaults();
    void referenceListsEveryKey();
    void manualListsEveryKey();

private:
    QString sample;
    QString reference;
};

void tst_SampleSettings::initTestCase()
{
    sample = read(QFINDTESTDATA("../../device/varnel-browser.ini"));
    reference = read(QFINDTESTDATA("../../docs/settings.md"));
    QVERIFY(!sample.isEmpty());
    QVERIFY(!reference.isEmpty());
}

void tst_SampleSettings::sampleHoldsEveryKeyCommentedOut()
{
    static const QRegularExpression allowed(QStringLiteral("^(|; .*|;|\\[\\w+\\]|;\\w+=.*)$"));
    const QStringList lines = sample.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        QVERIFY2(allowed.match(line).hasMatch(), qPrintable(line));
    }
}

void tst_SampleSettings::sampleUncommentedReadsAsTheDefaults()
{
    QString uncommented = sample;
    uncommented.replace(QRegularExpression(QStringLiteral("^;(\\w+=)"), QRegularExpression::MultilineOption),
                        QStringLiteral("\\1"));
    QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("sample.ini"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(uncommented.toUtf8());
    file.close();

    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(settings.status(), QSettings::NoError);
    QStringList expectedNames;
    const QVector<Line> expected = codeLines();
    for (const Line& line : expected) {
        QCOMPARE(line.name + QLatin1Char('=') + settings.value(line.name).toString(),
                 line.name + QLatin1Char('=') + line.value);
        expectedNames.append(line.name);
    }
    expectedNames.sort();
    QCOMPARE(settings.allKeys(), expectedNames);
}

void tst_SampleSettings::referenceListsEveryKey()
{
    compare(documentedLines(reference));
}

void tst_SampleSettings::manualListsEveryKey()
{
    compare(manualLines(read(QFINDTESTDATA("../../docs/man/varnel-browser.ini.5"))));
}

QTEST_APPLESS_MAIN(tst_SampleSettings)
#include "tst_samplesettings.moc"
