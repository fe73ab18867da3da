// SPDX-License-Identifier: MIT
#include "downloadname.h"

#include <QTemporaryDir>
#include <QUrl>

#include "logrecorder.h"
#include "rows.h"

using namespace Varnel;

class tst_DownloadName : public QObject
{
    Q_OBJECT

private slots:
    void header_data()
    {
        const Rows<QByteArray, QString> row("value", "name");
        const auto none = QString();
        row("no header: none", "", none);
        row("disposition alone: none", "attachment", none);
        row("blank after the semicolon: trimmed", "attachment; filename=log.txt", "log.txt"_s);
        row("name alone: taken", "filename=log.txt", "log.txt"_s);
        row("two names: the last wins", "attachment;filename=log.txt; filename=b.txt", "b.txt"_s);
        row("second name empty: none", "filename=log.txt;filename=", none);
        row("other part after the name: no matter", "filename=a.txt; size=12", "a.txt"_s);
        row("empty parts: skipped", ";;filename=a.txt;;", "a.txt"_s);
        row("tabs around: trimmed", "attachment;\tfilename=a.txt\t", "a.txt"_s);
        row("upper case: not recognised", "attachment; FILENAME=x", none);
        row("blank before the equals sign: not recognised", "attachment; filename =x", none);
        row("extended form: not recognised", "attachment; filename*=UTF-8''x.txt", none);
        row("quotes: kept", "attachment; filename=\"log.txt\"", "\"log.txt\""_s);
        row("semicolon in quotes: splits all the same", "filename=\"a;b.txt\"", "\"a"_s);
        row("percent code: not decoded", "filename=a%20b.txt", "a%20b.txt"_s);
        row("blank after the equals sign: kept", "filename= a.txt", " a.txt"_s);
        row("only blanks: none", "attachment; filename=   ", none);
        row("equals signs in the name: kept", "filename=a=b=c", "a=b=c"_s);
        row("UTF-8: taken as such", "filename=\xc3\xa9t\xc3\xa9.txt",
            QString::fromUtf8("\xc3\xa9t\xc3\xa9.txt"));
        row("Latin-1: taken as such", "filename=\xe9t\xe9.txt", QString::fromUtf8("\xc3\xa9t\xc3\xa9.txt"));
        row("half a UTF-8 character at the end: Latin-1", "filename=a\xc3", QString::fromUtf8("a\xc3\x83"));
        row("invalid UTF-8 and half a character: Latin-1", "filename=\xe9t\xc3",
            QString::fromUtf8("\xc3\xa9t\xc3\x83"));
        row("NUL in Latin-1: kept, as in UTF-8", QByteArray("filename=\xe9\0x", 12),
            QString::fromUtf8("\xc3\xa9\0x", 4));
        row("way up: taken, not judged here", "filename=../x", "../x"_s);
        row("300 characters: taken whole", "filename=" + QByteArray(300, 'n'),
            QString(300, QLatin1Char('n')));
    }

    void header()
    {
        QFETCH(QByteArray, value);
        QTEST(headerFileName(value), "name");
    }

    void headerOrUrl_data()
    {
        const Rows<QByteArray, QString, QString> row("header", "url", "name");
        row("last segment", "attachment", "http://r7m/logs/today.csv"_s, "today.csv"_s);
        row("query and fragment: left out", "attachment", "http://r7m/get.cgi?file=a.txt#b"_s, "get.cgi"_s);
        row("percent code: decoded", "attachment", "http://r7m/a%20b.txt"_s, "a b.txt"_s);
        row("UTF-8 percent code: decoded", "attachment", "http://r7m/%C3%A9t%C3%A9.txt"_s,
            "\xc3\xa9t\xc3\xa9.txt"_s);
        row("coded slash: separates", "attachment", "http://r7m/logs%2Ftoday.csv"_s, "today.csv"_s);
        row("coded way up: kept for the check", "attachment", "http://r7m/a%2F%2E%2E"_s, ".."_s);
        row("header with a name: goes before the URL", "filename=a.txt", "http://r7m/b.txt"_s, "a.txt"_s);
        row("header without: the URL", "FILENAME=a.txt", "http://r7m/b.txt"_s, "b.txt"_s);
    }

    void headerOrUrl()
    {
        QFETCH(QByteArray, header);
        QFETCH(QString, url);
        const LogRecorder log;
        QTEST(downloadFileName(header, QUrl(url)), "name");
        QVERIFY(log.lines().isEmpty());
    }

    void dateAndTime_data()
    {
        const Rows<QByteArray, QString> row("value", "url");
        row("URL ends in a slash", {}, "http://r7m/logs/"_s);
        row("URL without a path", {}, "http://r7m"_s);
        row("header name of blanks", "filename= ", "http://r7m/logs/"_s);
    }

    void dateAndTime()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, url);
        const LogRecorder log;
        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        const QString name = downloadFileName(value, QUrl(url));
        const QDateTime stamp = QDateTime::fromString(name, "yyyyMMdd-hhmmss"_s);
        QVERIFY2(stamp.isValid(), qPrintable(name));
        QVERIFY(stamp >= before && stamp <= QDateTime::currentDateTime());

        QCOMPARE(withoutStamps(log.texts()),
                 QStringList("TIME - No filename specified, using '%1'"_s.arg(name)));
    }

    void staysOnDrive()
    {
        for (const QString& name : {"log.txt"_s, "..."_s, "a..b"_s, ".hidden"_s, "."_s, "a\\b"_s}) {
            QVERIFY2(Varnel::staysOnDrive(name), qPrintable(name));
        }
        for (const QString& name :
             {".."_s, "../log.txt"_s, "sub/log.txt"_s, "/etc/passwd"_s, "log.txt/"_s, "a\0b"_s}) {
            QVERIFY2(!Varnel::staysOnDrive(name), qPrintable(name));
        }
    }

    void pathOnDrive_data()
    {
        const Rows<QString, QString> row("name", "path");
        row("plain: in the directory", "log.txt"_s, "/usbmnt/log.txt"_s);
        row("a colon in front: in the directory, no resource of the program", ":log.txt"_s,
            "/usbmnt/:log.txt"_s);
        row("colons alone: the same", "::"_s, "/usbmnt/::"_s);
        row("a colon within: the same", "qrc:log.txt"_s, "/usbmnt/qrc:log.txt"_s);
        row("absolute: leads away", "/etc/passwd"_s, "/etc/passwd"_s);
        row("way up: leads away", "../log.txt"_s, "/usbmnt/../log.txt"_s);
    }

    void pathOnDrive()
    {
        QFETCH(QString, name);
        QTEST(Varnel::pathOnDrive(QDir("/usbmnt"_s), name), "path");
    }

    void freeName_data()
    {
        const Rows<QStringList, QString, QString> row("taken", "name", "free");
        const auto files = [](const char* names) {
            return QString::fromUtf8(names).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        };
        row("nothing there: as it is", {}, "report.pdf"_s, "report.pdf"_s);
        row("taken: 1", files("report.pdf"), "report.pdf"_s, "report-1.pdf"_s);
        row("taken with 1: 2", files("log.txt log-1.txt"), "log.txt"_s, "log-2.txt"_s);
        row("a gap: filled", files("log.txt log-2.txt"), "log.txt"_s, "log-1.txt"_s);
        row("numbered name itself taken: numbered again", files("log-1.txt"), "log-1.txt"_s, "log-1-1.txt"_s);
        row("no suffix: trailing dot", files("data"), "data"_s, "data-1."_s);
        row("two suffixes: the last one kept behind", files("a.tar.gz"), "a.tar.gz"_s, "a.tar-1.gz"_s);
        row("hidden name: number in front of the suffix", files(".rc"), ".rc"_s, "-1.rc"_s);
        row("other letter case: free", files("LOG.TXT"), "log.txt"_s, "log.txt"_s);
        row("percent signs: no placeholders", files("%1%2%3.txt"), "%1%2%3.txt"_s, "%1%2%3-1.txt"_s);
        row("the directory itself: numbered", {}, "."_s, "-1."_s);
        row("way up: unchanged", {}, ".."_s, ".."_s);
        row("slash: unchanged", files("x"), "../x"_s, "../x"_s);
        row("a directory of that name: taken", files("sub/"), "sub"_s, "sub-1."_s);
        row("a link to nowhere: taken", files("link@"), "link"_s, "link-1."_s);
        row("a colon in front, taken: numbered", files(":log.txt :log-1.txt"), ":log.txt"_s, ":log-2.txt"_s);
    }

    void freeName()
    {
        QFETCH(QStringList, taken);
        QFETCH(QString, name);
        const QTemporaryDir directory;
        const QDir drive(directory.path());
        for (const QString& entry : qAsConst(taken)) {
            if (entry.endsWith(QLatin1Char('/'))) {
                QVERIFY(drive.mkdir(entry.chopped(1)));
            } else if (entry.endsWith(QLatin1Char('@'))) {
                QVERIFY(QFile::link("/nowhere/at/all"_s, drive.filePath(entry.chopped(1))));
            } else {
                QFile file(drive.path() + QLatin1Char('/') + entry);
                QVERIFY(file.open(QIODevice::WriteOnly));
            }
        }
        QTEST(freeFileName(drive, name), "free");
    }
};

QTEST_GUILESS_MAIN(tst_DownloadName)
#include "tst_downloadname.moc"
