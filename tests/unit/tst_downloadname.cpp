// SPDX-License-Identifier: MIT
#include "downloadname.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include "logrecorder.h"

using namespace Varnel;

class tst_DownloadName : public QObject
{
    Q_OBJECT

private slots:
    void header_data();
    void header();
    void urlPath_data();
    void urlPath();
    void headerGoesBeforeUrl();
    void dateAndTime_data();
    void dateAndTime();
    void staysOnDrive_data();
    void staysOnDrive();
    void pathOnDrive_data();
    void pathOnDrive();
    void freeName_data();
    void freeName();
};

void tst_DownloadName::header_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("name");

    const auto row = [](const char* title, const QByteArray& value, const QString& name) {
        QTest::newRow(title) << value << name;
    };
    const auto none = QString();
    row("no header: none", "", none);
    row("disposition alone: none", "attachment", none);
    row("blank after the semicolon: trimmed", "attachment; filename=log.txt", QStringLiteral("log.txt"));
    row("no blank: the same", "attachment;filename=log.txt", QStringLiteral("log.txt"));
    row("name alone: taken", "filename=log.txt", QStringLiteral("log.txt"));
    row("two names: the last wins", "attachment;filename=log.txt; filename=b.txt", QStringLiteral("b.txt"));
    row("second name empty: none", "filename=log.txt;filename=", none);
    row("other part after the name: no matter", "filename=a.txt; size=12", QStringLiteral("a.txt"));
    row("empty parts: skipped", ";;filename=a.txt;;", QStringLiteral("a.txt"));
    row("tabs around: trimmed", "attachment;\tfilename=a.txt\t", QStringLiteral("a.txt"));
    row("upper case: not recognised", "attachment; FILENAME=x", none);
    row("mixed case: not recognised", "attachment; Filename=x", none);
    row("blank before the equals sign: not recognised", "attachment; filename =x", none);
    row("extended form: not recognised", "attachment; filename*=UTF-8''x.txt", none);
    row("extended form after the plain one: the plain one", "filename=a; filename*=UTF-8''x.txt",
        QStringLiteral("a"));
    row("quotes: kept", "attachment; filename=\"log.txt\"", QStringLiteral("\"log.txt\""));
    row("semicolon in quotes: splits all the same", "filename=\"a;b.txt\"", QStringLiteral("\"a"));
    row("percent code: not decoded", "filename=a%20b.txt", QStringLiteral("a%20b.txt"));
    row("blank after the equals sign: kept", "filename= a.txt", QStringLiteral(" a.txt"));
    row("only blanks: none", "attachment; filename=   ", none);
    row("equals signs in the name: kept", "filename=a=b=c", QStringLiteral("a=b=c"));
    row("UTF-8: taken as such", "filename=\xc3\xa9t\xc3\xa9.txt", QString::fromUtf8("\xc3\xa9t\xc3\xa9.txt"));
    row("Latin-1: taken as such", "filename=\xe9t\xe9.txt", QString::fromUtf8("\xc3\xa9t\xc3\xa9.txt"));
    row("half a UTF-8 character at the end: Latin-1", "filename=a\xc3", QString::fromUtf8("a\xc3\x83"));
    row("NUL in Latin-1: kept, as in UTF-8", QByteArray("filename=\xe9\0x", 12),
        QString::fromUtf8("\xc3\xa9\0x", 4));
    row("dot: taken, not judged here", "filename=.", QStringLiteral("."));
    row("way up: taken, not judged here", "filename=../x", QStringLiteral("../x"));
    row("300 characters: taken whole", "filename=" + QByteArray(300, 'n'), QString(300, QLatin1Char('n')));
}

void tst_DownloadName::header()
{
    QFETCH(QByteArray, value);
    QTEST(headerFileName(value), "name");
}

void tst_DownloadName::urlPath_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("name");

    const auto row = [](const char* title, const char* url, const char* name) {
        QTest::newRow(title) << QString::fromLatin1(url) << QString::fromUtf8(name);
    };
    row("last segment", "http://r7m/logs/today.csv", "today.csv");
    row("query and fragment: left out", "http://r7m/get.cgi?file=a.txt#b", "get.cgi");
    row("percent code: decoded", "http://r7m/a%20b.txt", "a b.txt");
    row("UTF-8 percent code: decoded", "http://r7m/%C3%A9t%C3%A9.txt", "\xc3\xa9t\xc3\xa9.txt");
    row("coded slash: separates", "http://r7m/logs%2Ftoday.csv", "today.csv");
    row("coded way up: kept for the check", "http://r7m/a%2F%2E%2E", "..");
}

void tst_DownloadName::urlPath()
{
    QFETCH(QString, url);
    const LogRecorder log;
    QTEST(downloadFileName("attachment", QUrl(url)), "name");
    QVERIFY(log.lines().isEmpty());
}

void tst_DownloadName::headerGoesBeforeUrl()
{
    QCOMPARE(downloadFileName("filename=a.txt", QUrl(QStringLiteral("http://r7m/b.txt"))),
             QStringLiteral("a.txt"));
    QCOMPARE(downloadFileName("FILENAME=a.txt", QUrl(QStringLiteral("http://r7m/b.txt"))),
             QStringLiteral("b.txt"));
}

void tst_DownloadName::dateAndTime_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("url");

    QTest::newRow("URL ends in a slash") << QByteArray() << QStringLiteral("http://r7m/logs/");
    QTest::newRow("URL without a path") << QByteArray() << QStringLiteral("http://r7m");
    QTest::newRow("header name of blanks") << QByteArray("filename= ") << QStringLiteral("http://r7m/logs/");
}

void tst_DownloadName::dateAndTime()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, url);
    const LogRecorder log;
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    const QString name = downloadFileName(value, QUrl(url));
    const QDateTime stamp = QDateTime::fromString(name, QStringLiteral("yyyyMMdd-hhmmss"));
    QVERIFY2(stamp.isValid(), qPrintable(name));
    QVERIFY(stamp >= before && stamp <= QDateTime::currentDateTime());

    QCOMPARE(log.texts().size(), 1);
    const QRegularExpression line(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}"
                                                 " - No filename specified, using '%1'$")
                                      .arg(name));
    QVERIFY2(line.match(log.texts().first()).hasMatch(), qPrintable(log.texts().first()));
}

void tst_DownloadName::staysOnDrive_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("stays");

    const auto row = [](const QString& name, bool stays) {
        QTest::newRow(qPrintable(name + (stays ? QStringLiteral(": stays") : QStringLiteral(": leads away"))))
            << name << stays;
    };
    row(QStringLiteral("log.txt"), true);
    row(QStringLiteral("..."), true);
    row(QStringLiteral("a..b"), true);
    row(QStringLiteral(".hidden"), true);
    row(QStringLiteral("."), true);
    row(QStringLiteral("a\\b"), true);
    row(QStringLiteral(".."), false);
    row(QStringLiteral("../log.txt"), false);
    row(QStringLiteral("sub/log.txt"), false);
    row(QStringLiteral("/etc/passwd"), false);
    row(QStringLiteral("log.txt/"), false);
    QTest::newRow("NUL within: leads away") << QString::fromUtf8("a\0b", 3) << false;
}

void tst_DownloadName::staysOnDrive()
{
    QFETCH(QString, name);
    QTEST(Varnel::staysOnDrive(name), "stays");
}

void tst_DownloadName::pathOnDrive_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("path");

    const auto row = [](const char* title, const char* name, const char* path) {
        QTest::newRow(title) << QString::fromUtf8(name) << QString::fromUtf8(path);
    };
    row("plain: in the directory", "log.txt", "/usbmnt/log.txt");
    row("a colon in front: in the directory, no resource of the program", ":log.txt", "/usbmnt/:log.txt");
    row("colons alone: the same", "::", "/usbmnt/::");
    row("a colon within: the same", "qrc:log.txt", "/usbmnt/qrc:log.txt");
    row("absolute: leads away", "/etc/passwd", "/etc/passwd");
    row("way up: leads away", "../log.txt", "/usbmnt/../log.txt");
}

void tst_DownloadName::pathOnDrive()
{
    QFETCH(QString, name);
    QTEST(Varnel::pathOnDrive(QDir(QStringLiteral("/usbmnt")), name), "path");
}

void tst_DownloadName::freeName_data()
{
    QTest::addColumn<QStringList>("taken");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("free");

    const auto row = [](const char* title, const QStringList& taken, const char* name, const char* free) {
        QTest::newRow(title) << taken << QString::fromUtf8(name) << QString::fromUtf8(free);
    };
    const auto files = [](const char* names) {
        return QString::fromUtf8(names).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    };
    row("nothing there: as it is", {}, "report.pdf", "report.pdf");
    row("taken: 1", files("report.pdf"), "report.pdf", "report-1.pdf");
    row("taken with 1: 2", files("log.txt log-1.txt"), "log.txt", "log-2.txt");
    row("a gap: filled", files("log.txt log-2.txt"), "log.txt", "log-1.txt");
    row("numbered name itself taken: numbered again", files("log-1.txt"), "log-1.txt", "log-1-1.txt");
    row("no suffix: trailing dot", files("data"), "data", "data-1.");
    row("two suffixes: the last one kept behind", files("a.tar.gz"), "a.tar.gz", "a.tar-1.gz");
    row("hidden name: number in front of the suffix", files(".rc"), ".rc", "-1.rc");
    row("other letter case: free", files("LOG.TXT"), "log.txt", "log.txt");
    row("percent signs: no placeholders", files("%1%2%3.txt"), "%1%2%3.txt", "%1%2%3-1.txt");
    row("the directory itself: numbered", {}, ".", "-1.");
    row("way up: unchanged", {}, "..", "..");
    row("slash: unchanged", files("x"), "../x", "../x");
    row("a directory of that name: taken", files("sub/"), "sub", "sub-1.");
    row("a link to nowhere: taken", files("link@"), "link", "link-1.");
    row("a colon in front: free", {}, ":log.txt", ":log.txt");
    row("a colon in front, taken: numbered", files(":log.txt :log-1.txt"), ":log.txt", ":log-2.txt");
}

void tst_DownloadName::freeName()
{
    QFETCH(QStringList, taken);
    QFETCH(QString, name);
    const QTemporaryDir directory;
    const QDir drive(directory.path());
    for (const QString& entry : qAsConst(taken)) {
        if (entry.endsWith(QLatin1Char('/'))) {
            QVERIFY(drive.mkdir(entry.chopped(1)));
        } else if (entry.endsWith(QLatin1Char('@'))) {
            QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), drive.filePath(entry.chopped(1))));
        } else {
            QFile file(drive.path() + QLatin1Char('/') + entry);
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
    }
    QTEST(freeFileName(drive, name), "free");
}

QTEST_GUILESS_MAIN(tst_DownloadName)
#include "tst_downloadname.moc"
