// SPDX-License-Identifier: MIT
#include "watchdog.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

#include "notifysocket.h"
#include "scriptrunner.h"

using namespace Varnel;
using namespace std::chrono_literals;

namespace {

const auto alive = QStringLiteral("WATCHDOG=1");

/// The environment that a service manager gives its services; gone again with the object.
class Managed
{
    Q_DISABLE_COPY_MOVE(Managed)

public:
    explicit Managed(const NotifySocket& socket, const QByteArray& interval = {})
    {
        qputenv("NOTIFY_SOCKET", QByteArray::fromStdString(socket.path()));
        if (!interval.isEmpty()) {
            qputenv("WATCHDOG_USEC", interval);
            qputenv("WATCHDOG_PID", QByteArray::number(::getpid()));
        }
    }
    ~Managed()
    {
        for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            qunsetenv(name);
        }
    }
};

} // namespace

/// A service manager's end of the conversation, and who hears what.
class tst_Watchdog : public QObject
{
    Q_OBJECT

private slots:
    void nobodyAsked();
    void startAndEndAreTold();
    void eventLoopFeeds();
    void wrongIntervals_data();
    void wrongIntervals();
    void anotherProcessIsMeant();
    void fedBeforeAScript();
    void scriptsKnowNothingOfIt();
    void patienceGivesTheIntervalBack();
    void patienceNeverShortens();
};

void tst_Watchdog::nobodyAsked()
{
    NotifySocket socket;
    Watchdog watchdog;
    watchdog.announceReady();
    feedWatchdog();
    {
        const WatchdogPatience patience(1min);
    }
    watchdog.announceEnd();
    QCOMPARE(socket.messages(), QStringList());
}

void tst_Watchdog::startAndEndAreTold()
{
    NotifySocket socket;
    const Managed managed(socket);
    Watchdog watchdog;
    watchdog.announceReady();
    feedWatchdog(); // no interval: no heartbeat is expected
    watchdog.announceEnd();
    QCOMPARE(socket.messages(), QStringList({QStringLiteral("READY=1"), QStringLiteral("STOPPING=1")}));
}

void tst_Watchdog::eventLoopFeeds()
{
    NotifySocket socket;
    const Managed managed(socket, "100000");
    const Watchdog watchdog;
    QCOMPARE(socket.messages(), QStringList()); // the loop has not turned yet
    QTRY_VERIFY(socket.messages().size() >= 3);
    QCOMPARE(socket.messages().first(), alive);
    QCOMPARE(socket.messages().count(alive), socket.messages().size());
}

void tst_Watchdog::wrongIntervals_data()
{
    QTest::addColumn<QByteArray>("interval");
    QTest::newRow("0: not fed") << QByteArray("0");
    QTest::newRow("no number: not fed") << QByteArray("soon");
    QTest::newRow("negative: not fed") << QByteArray("-5");
    QTest::newRow("beyond 64 bits: not fed") << QByteArray("99999999999999999999999");
}

void tst_Watchdog::wrongIntervals()
{
    QFETCH(QByteArray, interval);
    NotifySocket socket;
    const Managed managed(socket, interval);
    Watchdog watchdog;
    feedWatchdog();
    watchdog.announceReady();
    QCOMPARE(socket.messages(), QStringList(QStringLiteral("READY=1")));
}

void tst_Watchdog::anotherProcessIsMeant()
{
    NotifySocket socket;
    const Managed managed(socket, "100000");
    qputenv("WATCHDOG_PID", QByteArray::number(::getppid()));
    feedWatchdog();
    QCOMPARE(socket.messages(), QStringList());
}

void tst_Watchdog::fedBeforeAScript()
{
    NotifySocket socket;
    const Managed managed(socket, "60000000");
    QCOMPARE(runScript(QStringLiteral("/bin/true"), {}), ScriptResult::Finished);
    QCOMPARE(socket.messages(), QStringList(alive));
    QCOMPARE(runScript(QStringLiteral("/bin/true"), {}), ScriptResult::Finished);
    QCOMPARE(socket.messages(), QStringList({alive, alive}));
    QCOMPARE(runScript(QStringLiteral("/nowhere/script.sh"), {}), ScriptResult::Missing);
    QCOMPARE(socket.messages().size(), 2);
}

void tst_Watchdog::scriptsKnowNothingOfIt()
{
    NotifySocket socket;
    const Managed managed(socket, "60000000");
    qputenv("NOTIFY_SOCKETS", "stays");
    const QTemporaryDir directory;
    const QString list = directory.filePath(QStringLiteral("environment"));
    QCOMPARE(runScript(QStringLiteral("/bin/sh"),
                       {QStringLiteral("-c"), QStringLiteral("env > \"$1\""), QStringLiteral("sh"), list}),
             ScriptResult::Finished);
    QFile file(list);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray environment = '\n' + file.readAll();
    qunsetenv("NOTIFY_SOCKETS");
    QVERIFY(environment.contains("\nPATH="));
    QVERIFY(environment.contains("\nNOTIFY_SOCKETS=stays\n"));
    QVERIFY(!environment.contains("\nNOTIFY_SOCKET="));
    QVERIFY(!environment.contains("\nWATCHDOG_"));
}

void tst_Watchdog::patienceGivesTheIntervalBack()
{
    NotifySocket socket;
    const Managed managed(socket, "60000000");
    {
        const WatchdogPatience patience(30min);
        QCOMPARE(socket.messages(), QStringList(QStringLiteral("WATCHDOG_USEC=1800000000\nWATCHDOG=1")));
    }
    QCOMPARE(socket.messages().last(), QStringLiteral("WATCHDOG_USEC=60000000\nWATCHDOG=1"));
    QCOMPARE(socket.messages().size(), 2);
}

void tst_Watchdog::patienceNeverShortens()
{
    NotifySocket socket;
    const Managed managed(socket, "60000000");
    const WatchdogPatience patience(5s);
    QCOMPARE(socket.messages(), QStringList(QStringLiteral("WATCHDOG_USEC=60000000\nWATCHDOG=1")));
}

QTEST_GUILESS_MAIN(tst_Watchdog)
#include "tst_watchdog.moc"
