// SPDX-License-Identifier: MIT
// Tests of the sandbox and of the helpers that the other system tests rely on.

#include <QFile>
#include <QNetworkInterface>
#include <QTest>

#include "standinsys.h"

class tst_Support : public QObject
{
    Q_OBJECT

private slots:
    void sandboxHidesTheHost()
    {
        QCOMPARE(StandInSys::read("/sys/class/net/usb0/operstate"_s), "down"_s);
        QVERIFY(!QFile::exists("/sys/kernel"_s));
        QStringList names;
        const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
        for (const QNetworkInterface& interface : interfaces) {
            names += interface.name();
        }
        names.sort();
        QCOMPARE(names, QStringList({"cable"_s, "eth1"_s, "lo"_s}));
    }

    void logKeepsOrder()
    {
        LogReader log;
        log.feed("first\n2026-01-02 03:04:05.678 - second\nthi");
        QCOMPARE(log.lines(), QStringList({"first"_s, "<now> - second"_s}));
        log.feed("rd\n");
        QVERIFY(log.await({"first"_s, "third"_s}));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Not logged: \"?first"_s));
        QVERIFY(!log.await("first"_s, std::chrono::milliseconds(1)));
        log.forget();
        log.feed("fourth\n");
        QCOMPARE(log.lines(), QStringList("fourth"_s));
        QVERIFY(log.await("fourth"_s));
        QCOMPARE(log.lineCount(), qint64(4));
        QCOMPARE(log.octetCount(), qint64(52));
    }
};

QTEST_GUILESS_MAIN(tst_Support)
#include "tst_support.moc"
