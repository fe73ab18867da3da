// SPDX-License-Identifier: MIT
// The settings' homes agree: the table in the code, the sample file that a device image ships, and the
// reference in the documentation and its manual page.
#include <QFile>
#include <QHash>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include "literals.h"
#include "settingsaccess.h"

using namespace Varnel;

namespace {

QString read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read %s", qPrintable(path));
    }
    return QString::fromUtf8(file.readAll());
}

/// The word for a type in the documentation.
QString typeWord(int type)
{
    static const QHash<int, QString> words{
        {QMetaType::QString, "text"_s}, {QMetaType::Bool, "flag"_s}, {QMetaType::Int, "s32"_s},
        {QMetaType::UShort, "u16"_s},   {QMetaType::UInt, "u32"_s},  {QMetaType::ULongLong, "u64"_s},
    };
    return words.value(type);
}

/// The keys of the code's own table as "Group/Key type default". No settings file is loaded here.
QStringList codeLines()
{
    QStringList lines;
    for (const Settings::Entry& entry : Settings::entries()) {
        const QVariant value = entry.value();
        lines << "%1 %2 %3"_s.arg(nameOf(entry), typeWord(value.userType()), value.toString());
    }
    return lines;
}

/// The same from a page: a group under each heading, a key, its type and its default in each row.
QStringList documentedLines(const QString& page, const QString& heading, const QString& row)
{
    const QRegularExpression headingPattern(heading);
    const QRegularExpression rowPattern(row);
    QStringList lines;
    QString group;
    const QStringList pageLines = page.split(QLatin1Char('\n'));
    for (const QString& text : pageLines) {
        if (text.startsWith("## "_s)) {
            group.clear();
        }
        if (const auto found = headingPattern.match(text); found.hasMatch()) {
            group = found.captured(1);
        }
        if (const auto found = rowPattern.match(text); found.hasMatch() && !group.isEmpty()) {
            lines << "%1/%2 %3 %4"_s.arg(group, found.captured(1), found.captured(2), found.captured(3));
        }
    }
    return lines;
}

} // namespace

class tst_SampleSettings : public QObject
{
    Q_OBJECT

private slots:
    void sampleHoldsEveryKeyCommentedOut()
    {
        static const QRegularExpression allowed("^(|; .*|;|\\[\\w+\\]|;\\w+=.*)$"_s);
        const QStringList lines = read(samplePath).split(QLatin1Char('\n'));
        for (const QString& line : lines) {
            QVERIFY2(allowed.match(line).hasMatch(), qPrintable(line));
        }
    }

    void sampleUncommentedReadsAsTheDefaults()
    {
        QString uncommented = read(samplePath);
        uncommented.replace(QRegularExpression("^;(\\w+=)"_s, QRegularExpression::MultilineOption), "\\1"_s);
        QTemporaryDir directory;
        const QString path = directory.filePath("sample.ini"_s);
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(uncommented.toUtf8());
        file.close();

        const QSettings settings(path, QSettings::IniFormat);
        QCOMPARE(settings.status(), QSettings::NoError);
        QStringList expectedNames;
        for (const Settings::Entry& entry : Settings::entries()) {
            const QString name = nameOf(entry);
            QVERIFY2(settings.value(name).toString() == entry.value().toString(), qPrintable(name));
            expectedNames.append(name);
        }
        expectedNames.sort();
        QCOMPARE(settings.allKeys(), expectedNames);
    }

    void referenceListsEveryKey()
    {
        // Rows "| `Key` | type | `default` | ..." under a heading "### [Group]".
        QCOMPARE(documentedLines(read(QFINDTESTDATA("../../docs/settings.md")), "^### \\[(\\w+)\\]$"_s,
                                 "^\\| `(\\w+)` \\| (\\w+) \\| (?:`([^`]+)`|empty) \\|"_s),
                 codeLines());
    }

    void manualListsEveryKey()
    {
        // Tags ".BR Key " (type, default value)"" under ".SH "GROUP [Group]"".
        QString page = read(QFINDTESTDATA("../../docs/man/varnel-browser.ini.5"));
        page.replace("\\-"_s, "-"_s);
        QCOMPARE(documentedLines(page, "^\\.SH \"GROUP \\[(\\w+)\\]\"$"_s,
                                 "^\\.BR (\\w+) \" \\((\\w+), default (?:empty|(.+))\\)\"$"_s),
                 codeLines());
    }

private:
    QString samplePath = QFINDTESTDATA("../../device/varnel-browser.ini");
};

QTEST_APPLESS_MAIN(tst_SampleSettings)
#include "tst_samplesettings.moc"
