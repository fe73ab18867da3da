// SPDX-License-Identifier: MIT
#include <limits>

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "helpers.h"
#include "logrecorder.h"

using Varnel::Helpers;

/// Writes to files, the time stamp, the pause and the digests.
class tst_Helpers : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(directory.isValid()); }
    void echoWritesTheBareText_data();
    void echoWritesTheBareText();
    void echoWritesTheBareNumber_data();
    void echoWritesTheBareNumber();
    void echoTruncates();
    void echoReportsWhatItCannotOpen_data();
    void echoReportsWhatItCannotOpen();
    void nowIsTheLocalTime();
    void sleepBlocksTheEventLoop();
    void sleepOfNoTimeReturns_data();
    void sleepOfNoTimeReturns();
    void hashIsRawMd5_data();
    void hashIsRawMd5();
    void fileHashReadsTheWholeFile();
    void unreadableFilesHashAsEmpty_data();
    void unreadableFilesHashAsEmpty();

private:
    QString path(const QString& name) const { return directory.filePath(name); }
    static QByteArray contents(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
    }

    QTemporaryDir directory;
};

void tst_Helpers::echoWritesTheBareText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("octets");
    QTest::newRow("a word: no line end") << QStringLiteral("out") << QByteArray("out");
    QTest::newRow("empty: an empty file") << QString() << QByteArray();
    QTest::newRow("line end of the caller: kept") << QStringLiteral("a\n") << QByteArray("a\n");
    QTest::newRow("e acute: one Latin-1 octet") << QStringLiteral("\u00e9") << QByteArray("\xe9");
    QTest::newRow("per cent: not a format") << QStringLiteral("100%s") << QByteArray("100%s");
    QTest::newRow("letter outside of Latin-1: question mark") << QStringLiteral("\u0416") << QByteArray("?");
}

void tst_Helpers::echoWritesTheBareText()
{
    QFETCH(QString, text);
    const LogRecorder log;
    QVERIFY(Helpers::echo(path(QStringLiteral("text")), text));
    QTEST(contents(path(QStringLiteral("text"))), "octets");
    QVERIFY(log.lines().isEmpty());
}

void tst_Helpers::echoWritesTheBareNumber_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QByteArray>("octets");
    QTest::newRow("0: the single character 0") << 0 << QByteArray("0");
    QTest::newRow("-5: leading minus") << -5 << QByteArray("-5");
    QTest::newRow("224: no padding") << 224 << QByteArray("224");
    QTest::newRow("smallest int: all digits") << std::numeric_limits<int>::min() << QByteArray("-2147483648");
}

void tst_Helpers::echoWritesTheBareNumber()
{
    QFETCH(int, value);
    QVERIFY(Helpers::echo(path(QStringLiteral("number")), value));
    QTEST(contents(path(QStringLiteral("number"))), "octets");
}

void tst_Helpers::echoTruncates()
{
    const QString file = path(QStringLiteral("truncated"));
    QVERIFY(Helpers::echo(file, QStringLiteral("something long")));
    QVERIFY(Helpers::echo(file, 1));
    QCOMPARE(contents(file), QByteArray("1"));
}

void tst_Helpers::echoReportsWhatItCannotOpen_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("directory missing: false") << QStringLiteral("missing/file");
    QTest::newRow("a directory: false") << QStringLiteral(".");
    QTest::newRow("per cent in the path: printed as it is") << QStringLiteral("missing/%s%1%n");
}

void tst_Helpers::echoReportsWhatItCannotOpen()
{
    QFETCH(QString, name);
    const LogRecorder log;
    QVERIFY(!Helpers::echo(path(name), 1));
    QCOMPARE(log.texts(),
             QStringList{QStringLiteral("Error opening file '") + path(name) + QLatin1Char('\'')});
    QCOMPARE(log.lines().constFirst().type, QtCriticalMsg);
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("missing"))));
}

void tst_Helpers::nowIsTheLocalTime()
{
    const QDateTime before = QDateTime::currentDateTime();
    const QString stamp = Helpers::now();
    const QDateTime after = QDateTime::currentDateTime();

    // Read back by position, so that "9:5:3.7" or a 12-hour clock cannot pass.
    QCOMPARE(stamp.size(), 23);
    const auto number = [&stamp](int at, int width) { return stamp.mid(at, width).toInt(); };
    const QDateTime read(QDate(number(0, 4), number(5, 2), number(8, 2)),
                         QTime(number(11, 2), number(14, 2), number(17, 2), number(20, 3)));
    QCOMPARE(QString(stamp).replace(QRegularExpression(QStringLiteral("[0-9]")), QStringLiteral("9")),
             QStringLiteral("9999-99-99 99:99:99.999"));
    QVERIFY2(before <= read && read <= after, qPrintable(stamp));
}

void tst_Helpers::sleepBlocksTheEventLoop()
{
    bool served = false;
    QTimer::singleShot(0, this, [&served] { served = true; });
    QElapsedTimer clock;
    clock.start();
    Helpers::sleep(50);
    QVERIFY2(clock.elapsed() >= 49, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(!served);
    QTRY_VERIFY(served);
}

void tst_Helpers::sleepOfNoTimeReturns_data()
{
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("0: at once") << 0;
    QTest::newRow("negative: at once, not for 49 days") << -1;
}

void tst_Helpers::sleepOfNoTimeReturns()
{
    QFETCH(int, milliseconds);
    QElapsedTimer clock;
    clock.start();
    Helpers::sleep(milliseconds);
    QVERIFY(clock.elapsed() < 5000);
}

void tst_Helpers::hashIsRawMd5_data()
{
    // RFC 1321, appendix A.5.
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("digest");
    QTest::newRow("empty: the digest of empty input")
        << QByteArray() << QByteArray("d41d8cd98f00b204e9800998ecf8427e");
    QTest::newRow("a") << QByteArray("a") << QByteArray("0cc175b9c0f1b6a831c399e269772661");
    QTest::newRow("message digest") << QByteArray("message digest")
                                    << QByteArray("f96b697d7cb7938d525a2f31aaf161d0");
}

void tst_Helpers::hashIsRawMd5()
{
    QFETCH(QByteArray, data);
    const QByteArray digest = Helpers::calculateHash(data);
    QCOMPARE(digest.size(), 16);
    QTEST(digest.toHex(), "digest");
}

void tst_Helpers::fileHashReadsTheWholeFile()
{
    const QString file = path(QStringLiteral("hashed"));
    QVERIFY(Helpers::echo(file, QStringLiteral("message digest")));
    QCOMPARE(Helpers::calculateFileHash(file).toHex(), QByteArray("f96b697d7cb7938d525a2f31aaf161d0"));

    QFile large(file);
    QVERIFY(large.open(QIODevice::WriteOnly));
    const QByteArray octets(300000, '\0');
    QCOMPARE(large.write(octets), qint64(octets.size()));
    large.close();
    QCOMPARE(Helpers::calculateFileHash(file), Helpers::calculateHash(octets));

    QVERIFY(Helpers::echo(file, QString()));
    QCOMPARE(Helpers::calculateFileHash(file).toHex(), QByteArray("d41d8cd98f00b204e9800998ecf8427e"));
}

void tst_Helpers::unreadableFilesHashAsEmpty_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("missing: empty, not the digest of nothing") << QStringLiteral("none");
    QTest::newRow("a directory: empty") << QStringLiteral(".");
}

void tst_Helpers::unreadableFilesHashAsEmpty()
{
    QFETCH(QString, name);
    const LogRecorder log;
    QVERIFY(Helpers::calculateFileHash(path(name)).isEmpty());
    QVERIFY(log.lines().isEmpty());
}

QTEST_GUILESS_MAIN(tst_Helpers)
#include "tst_helpers.moc"
