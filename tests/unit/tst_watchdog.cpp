// SPDX-License-Identifier: MIT
#include "watchdog.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

#include "literals.h"
#include "notifysocket.h"
#include "scriptrunner.h"

using namespace Varnel;
using namespace std::chrono_literals;

namespace {

const auto alive = "WATCHDOG=1"_s;

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
    void nobodyAsked()
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

    void startAndEndAreTold()
    {
        NotifySocket socket;
        const Managed managed(socket);
        Watchdog watchdog;
        watchdog.announceReady();
        feedWatchdog(); // no interval: no heartbeat is expected
        watchdog.announceEnd();
        QCOMPARE(socket.messages(), QStringList({"READY=1"_s, "STOPPING=1"_s}));
    }

    void eventLoopFeeds()
    {
        NotifySocket socket;
        const Managed managed(socket, "100000");
        const Watchdog watchdog;
        QCOMPARE(socket.messages(), QStringList()); // the loop has not turned yet
        QTRY_VERIFY(socket.messages().size() >= 3);
        QCOMPARE(socket.messages().first(), alive);
        QCOMPARE(socket.messages().count(alive), socket.messages().size());
    }

    void wrongIntervals()
    {
        for (const char* const interval : {"0", "soon", "-5", "99999999999999999999999"}) {
            NotifySocket socket;
            const Managed managed(socket, interval);
            Watchdog watchdog;
            feedWatchdog();
            watchdog.announceReady();
            QCOMPARE(socket.messages(), QStringList("READY=1"_s));
        }
    }

    void anotherProcessIsMeant()
    {
        NotifySocket socket;
        const Managed managed(socket, "100000");
        qputenv("WATCHDOG_PID", QByteArray::number(::getppid()));
        feedWatchdog();
        QCOMPARE(socket.messages(), QStringList());
    }

    void fedBeforeAScript()
    {
        NotifySocket socket;
        const Managed managed(socket, "60000000");
        QCOMPARE(runScript("/bin/true"_s, {}), ScriptResult::Finished);
        QCOMPARE(runScript("/bin/true"_s, {}), ScriptResult::Finished);
        QCOMPARE(socket.messages(), QStringList({alive, alive}));
        QCOMPARE(runScript("/nowhere/script.sh"_s, {}), ScriptResult::Missing);
        QCOMPARE(socket.messages().size(), 2);
    }

    void scriptsKnowNothingOfIt()
    {
        NotifySocket socket;
        const Managed managed(socket, "60000000");
        qputenv("NOTIFY_SOCKETS", "stays");
        const QTemporaryDir directory;
        const QString list = directory.filePath("environment"_s);
        QCOMPARE(runScript("/bin/sh"_s, {"-c"_s, "env > \"$1\""_s, "sh"_s, list}), ScriptResult::Finished);
        QFile file(list);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray environment = '\n' + file.readAll();
        qunsetenv("NOTIFY_SOCKETS");
        QVERIFY(environment.contains("\nPATH="));
        QVERIFY(environment.contains("\nNOTIFY_SOCKETS=stays\n"));
        QVERIFY(!environment.contains("\nNOTIFY_SOCKET="));
        QVERIFY(!environment.contains("\nWATCHDOG_"));
    }

    void patience()
    {
        NotifySocket socket;
        const Managed managed(socket, "60000000");
        {
            const WatchdogPatience patience(30min);
            QCOMPARE(socket.messages(), QStringList("WATCHDOG_USEC=1800000000\nWATCHDOG=1"_s));
        }
        QCOMPARE(socket.messages().mid(1), QStringList("WATCHDOG_USEC=60000000\nWATCHDOG=1"_s));
        const WatchdogPatience shorter(5s); // never shortens the interval
        QCOMPARE(socket.messages().mid(2), QStringList("WATCHDOG_USEC=60000000\nWATCHDOG=1"_s));
    }
};

QTEST_GUILESS_MAIN(tst_Watchdog)
#include "tst_watchdog.moc"
