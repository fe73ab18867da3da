// SPDX-License-Identifier: MIT
#include <QDir>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <sys/resource.h>

#include "literals.h"
#include "signalwatcher.h"

using Varnel::SignalWatcher;

namespace {

/// The process's handler of this signal.
struct sigaction actionOf(int number)
{
    struct sigaction action = {};
    ::sigaction(number, nullptr, &action);
    return action;
}

/// Runs the application's event loop until somebody quits it; true when that was in time.
bool loopEnds()
{
    bool inTime = true;
    QTimer limit;
    QObject::connect(&limit, &QTimer::timeout, &limit, [&inTime] {
        inTime = false;
        QCoreApplication::quit();
    });
    limit.start(5000);
    return QCoreApplication::exec() == 0 && inTime;
}

int openDescriptors()
{
    return QDir("/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

/// Signals of a service manager and of a terminal end the event loop, in order.
class tst_SignalWatcher : public QObject
{
    Q_OBJECT

private slots:
    void endsTheEventLoop()
    {
        for (const int number : {SIGTERM, SIGINT}) {
            const SignalWatcher watcher;
            QVERIFY(!SignalWatcher::isEndRequested());
            QCOMPARE(::raise(number), 0);
            QVERIFY(SignalWatcher::isEndRequested()); // at once
            QVERIFY(loopEnds());
        }
        QVERIFY(!SignalWatcher::isEndRequested());
    }

    void burstEndsItOnce()
    {
        const SignalWatcher watcher;
        // More than a pipe holds: the handler must neither block nor end the process.
        for (int i = 0; i < 70000; ++i) {
            QCOMPARE(::raise(i % 2 == 0 ? SIGTERM : SIGINT), 0);
        }
        QVERIFY(loopEnds());
    }

    void handlersGoWithIt()
    {
        for (const int number : {SIGTERM, SIGINT}) {
            {
                const SignalWatcher watcher;
                QVERIFY(actionOf(number).sa_handler != SIG_DFL);
                QVERIFY((actionOf(number).sa_flags & SA_RESTART) != 0); // interrupted writes go on
            }
            QVERIFY(actionOf(number).sa_handler == SIG_DFL);
        }
    }

    void leavesNoDescriptors()
    {
        const int before = openDescriptors();
        for (int i = 0; i < 10; ++i) {
            const SignalWatcher watcher;
            QVERIFY(openDescriptors() > before);
        }
        QCOMPARE(openDescriptors(), before);
    }

    void withoutDescriptorsSignalsKeepTheirDefault()
    {
        rlimit usual{};
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &usual), 0);
        const rlimit none{0, usual.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
        const SignalWatcher watcher;
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &usual), 0);
        QVERIFY(actionOf(SIGTERM).sa_handler == SIG_DFL);
        QVERIFY(actionOf(SIGINT).sa_handler == SIG_DFL);
    }
};

QTEST_GUILESS_MAIN(tst_SignalWatcher)
#include "tst_signalwatcher.moc"
