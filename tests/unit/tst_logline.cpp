// SPDX-License-Identifier: MIT
#include "helpers.h"
#include "logline.h"
#include "logrecorder.h"
#include "rows.h"

/// Preformatted lines: printed as they are.
class tst_LogLine : public QObject
{
    Q_OBJECT

private slots:
    void printsTheLineAsItIs_data()
    {
        const Rows<QString, QString> row("line", "printed");
        const auto same = [row](const char* name, const QString& line) { row(name, line, line); };
        same("plain: same", "2016-03-01 14:05:09.042 - Running"_s);
        same("empty: an empty line", QString());
        same("per cent signs: none is doubled or lost", "%% %1 %2F %s%n %"_s);
        same("quotes: not escaped", "Request '\"a\"' failed"_s);
        same("longer than a buffer: whole", QString(5000, QLatin1Char('x')));
        row("control characters: question marks", "a\u001b[2Jb\nc\rd\te\u007ff\u009bg\u0000h"_s,
            "a?[2Jb?c?d?e?f?g?h"_s);
        // The Latin-1 octet is no UTF-8, which is what the C string road of the debug log reads.
        row("e acute: replacement character", "Caf\u00e9!"_s, "Caf\uFFFD!"_s);
        row("outside of Latin-1: question mark", "\u0416!"_s, "?!"_s);
    }

    void printsTheLineAsItIs()
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

    void stampsTheLine()
    {
        const LogRecorder log;
        const QString before = Varnel::Helpers::now();
        Varnel::logStamped("%1 %s"_s);
        Varnel::logCriticalStamped("%2 %n"_s);
        const QString after = Varnel::Helpers::now();
        QCOMPARE(log.lines().size(), 2);
        QCOMPARE(log.lines().at(0).type, QtDebugMsg);
        QCOMPARE(log.lines().at(1).type, QtCriticalMsg);
        QCOMPARE(log.texts().at(0).mid(before.size()), " - %1 %s"_s);
        QCOMPARE(log.texts().at(1).mid(before.size()), " - %2 %n"_s);
        for (const QString& text : log.texts()) {
            const QString stamp = text.left(before.size());
            QVERIFY2(before <= stamp && stamp <= after, qPrintable(text));
        }
    }
};

QTEST_GUILESS_MAIN(tst_LogLine)
#include "tst_logline.moc"
