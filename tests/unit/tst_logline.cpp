// SPDX-License-Identifier: MIT
#include <QTest>

#include "helpers.h"
#include "logline.h"
#include "logrecorder.h"

/// Preformatted lines: printed as they are.
class tst_LogLine : public QObject
{
    Q_OBJECT

private slots:
    void printsTheLineAsItIs_data();
    void printsTheLineAsItIs();
    void stampsTheLine();
};

void tst_LogLine::printsTheLineAsItIs_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("printed");
    const auto same = [](const char* name, const QString& line) { QTest::newRow(name) << line << line; };
    same("plain: same", QStringLiteral("2016-03-01 14:05:09.042 - Running"));
    same("empty: an empty line", QString());
    same("string conversion: same", QStringLiteral("http://c/%s%s%s"));
    same("writing conversion: same", QStringLiteral("100%n"));
    same("per cent signs: none is doubled or lost", QStringLiteral("%% %1 %2F %"));
    same("quotes: not escaped", QStringLiteral("Request '\"a\"' failed"));
    same("longer than a buffer: whole", QString(5000, QLatin1Char('x')));
    QTest::newRow("control characters: question marks")
        << QStringLiteral("a\u001b[2Jb\nc\rd\te\u007ff\u009bg\u0000h")
        << QStringLiteral("a?[2Jb?c?d?e?f?g?h");
    // The Latin-1 octet is no UTF-8, which is what the C string road of the debug log reads.
    QTest::newRow("e acute: replacement character")
        << QStringLiteral("Caf\u00e9!") << QStringLiteral("Caf\uFFFD!");
    QTest::newRow("outside of Latin-1: question mark") << QStringLiteral("\u0416!") << QStringLiteral("?!");
}

void tst_LogLine::printsTheLineAsItIs()
{
    QFETCH(QString, line);
    QFETCH(QString, printed);
    const LogRecorder log;
    Varnel::logLine(line);
    Varnel::logCriticalLine(line);
    QCOMPARE(log.texts(), (QStringList{printed, printed}));
    QCOMPARE(log.lines().at(0).type, QtDebugMsg);
    QCOMPARE(log.lines().at(1).type, QtCriticalMsg);
}

void tst_LogLine::stampsTheLine()
{
    const LogRecorder log;
    const QString before = Varnel::Helpers::now();
    Varnel::logStamped(QStringLiteral("%1 %s"));
    Varnel::logCriticalStamped(QStringLiteral("%2 %n"));
    const QString after = Varnel::Helpers::now();
    QCOMPARE(log.lines().size(), 2);
    QCOMPARE(log.lines().at(0).type, QtDebugMsg);
    QCOMPARE(log.lines().at(1).type, QtCriticalMsg);
    QCOMPARE(log.texts().at(0).mid(before.size()), QStringLiteral(" - %1 %s"));
    QCOMPARE(log.texts().at(1).mid(before.size()), QStringLiteral(" - %2 %n"));
    for (const QString& text : log.texts()) {
        const QString stamp = text.left(before.size());
        QVERIFY2(before <= stamp && stamp <= after, qPrintable(text));
    }
}

QTEST_GUILESS_MAIN(tst_LogLine)
#include "tst_logline.moc"
