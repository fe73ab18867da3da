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
    void echoWritesTheBareValue()
    {
        const auto written = [this](const auto& value) {
            const LogRecorder log;
            const QString file = path("value"_s);
            const bool done = Helpers::echo(file, "something longer"_s) && Helpers::echo(file, value);
            return done && log.lines().isEmpty() ? contents(file) : QByteArray("(failed)");
        };
        QCOMPARE(written("out"_s), QByteArray("out")); // no line end
        QCOMPARE(written(QString()), QByteArray());
        QCOMPARE(written("a\n"_s), QByteArray("a\n"));
        QCOMPARE(written("100%s"_s), QByteArray("100%s"));
        QCOMPARE(written("\u00e9"_s), QByteArray("\xe9")); // Latin-1
        QCOMPARE(written("\u0416"_s), QByteArray("?"));
        QCOMPARE(written(0), QByteArray("0"));
        QCOMPARE(written(224), QByteArray("224"));
        QCOMPARE(written(std::numeric_limits<int>::min()), QByteArray("-2147483648"));
    }

    void echoReportsWhatItCannotOpen()
    {
        for (const QString& name : {"missing/file"_s, "."_s, "missing/%s%1%n"_s}) {
            const LogRecorder log;
            QVERIFY(!Helpers::echo(path(name), 1));
            QCOMPARE(log.texts(), QStringList{"Error opening file '"_s + path(name) + QLatin1Char('\'')});
            QCOMPARE(log.lines().constFirst().type, QtCriticalMsg);
            QVERIFY(!QFileInfo::exists(path("missing"_s)));
        }
    }

    void nowIsTheLocalTime()
    {
        const QDateTime before = QDateTime::currentDateTime();
        const QString stamp = Helpers::now();
        const QDateTime after = QDateTime::currentDateTime();
        QCOMPARE(QString(stamp).replace(QRegularExpression("[0-9]"_s), "9"_s), "9999-99-99 99:99:99.999"_s);
        const QDateTime read = QDateTime::fromString(stamp, "yyyy-MM-dd HH:mm:ss.zzz"_s);
        QVERIFY2(before <= read && read <= after, qPrintable(stamp));
    }

    void sleepBlocksTheEventLoop()
    {
        bool served = false;
        QTimer::singleShot(0, this, [&served] { served = true; });
        QElapsedTimer clock;
        clock.start();
        Helpers::sleep(50);
        QVERIFY2(clock.elapsed() >= 49, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!served);
        QTRY_VERIFY(served);
        clock.restart();
        Helpers::sleep(0);
        Helpers::sleep(-1); // not for 49 days
        QVERIFY(clock.elapsed() < 5000);
    }

    void hashIsRawMd5()
    {
        // RFC 1321, appendix A.5.
        QCOMPARE(Helpers::calculateHash({}), QByteArray::fromHex("d41d8cd98f00b204e9800998ecf8427e"));
        QCOMPARE(Helpers::calculateHash("message digest"),
                 QByteArray::fromHex("f96b697d7cb7938d525a2f31aaf161d0"));
    }

    void fileHashReadsTheWholeFile()
    {
        const QString file = path("hashed"_s);
        for (const QString& text : {"message digest"_s, QString(300000, QLatin1Char('x')), QString()}) {
            QVERIFY(Helpers::echo(file, text));
            QCOMPARE(Helpers::calculateFileHash(file), Helpers::calculateHash(text.toLatin1()));
        }
    }

    void unreadableFilesHashAsEmpty()
    {
        const LogRecorder log;
        QCOMPARE(Helpers::calculateFileHash(path("none"_s)), QByteArray()); // not the digest of nothing
        QCOMPARE(Helpers::calculateFileHash(path("."_s)), QByteArray());
        QVERIFY(log.lines().isEmpty());
    }

private:
    QString path(const QString& name) const { return directory.filePath(name); }
    static QByteArray contents(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
    }

    QTemporaryDir directory;
};

QTEST_GUILESS_MAIN(tst_Helpers)
#include "tst_helpers.moc"
