// SPDX-License-Identifier: MIT
#include <QDir>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "signalwatcher.h"

using Varnel::SignalWatcher;

/// Signals of a service manager and of a terminal end the event loop, in order.
class tst_SignalWatcher : public QObject
{
    Q_OBJECT

private slots:
    void endsTheEventLoop_data();
    void endsTheEventLoop();
    void requestIsKnownAtOnce();
    void burstEndsItOnce();
    void interruptedWritesGoOn();
    void handlersGoWithIt_data();
    void handlersGoWithIt();
    void leavesNoDescriptors();
    void withoutDescriptorsSignalsKeepTheirDefault_data();
    void withoutDescriptorsSignalsKeepTheirDefault();
};

namespace {

void signals_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
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
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

void tst_SignalWatcher::endsTheEventLoop_data()
{
    signals_data();
}

void tst_SignalWatcher::endsTheEventLoop()
{
    QFETCH(int, number);
    const SignalWatcher watcher;
    QCOMPARE(::raise(number), 0);
    QVERIFY(loopEnds());
}

void tst_SignalWatcher::requestIsKnownAtOnce()
{
    {
        const SignalWatcher watcher;
        QVERIFY(!SignalWatcher::isEndRequested());
        QCOMPARE(::raise(SIGTERM), 0);
        QVERIFY(SignalWatcher::isEndRequested());
    }
    QVERIFY(!SignalWatcher::isEndRequested());
}

void tst_SignalWatcher::burstEndsItOnce()
{
    const SignalWatcher watcher;
    // More than a pipe holds: the handler must neither block nor end the process.
    for (int i = 0; i < 70000; ++i) {
        QCOMPARE(::raise(i % 2 == 0 ? SIGTERM : SIGINT), 0);
    }
    QVERIFY(loopEnds());
}

void tst_SignalWatcher::interruptedWritesGoOn()
{
    const SignalWatcher watcher;
    struct sigaction action = {};
    QCOMPARE(::sigaction(SIGTERM, nullptr, &action), 0);
    QVERIFY((action.sa_flags & SA_RESTART) != 0);
}

void tst_SignalWatcher::handlersGoWithIt_data()
{
    signals_data();
}

void tst_SignalWatcher::handlersGoWithIt()
{
    QFETCH(int, number);
    {
        const SignalWatcher watcher;
    }
    // A second process shows what the signal does now: it ends it.
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(::raise(number));
    }
    QVERIFY(child > 0);
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), number);
}

void tst_SignalWatcher::leavesNoDescriptors()
{
    const int before = openDescriptors();
    for (int i = 0; i < 10; ++i) {
        const SignalWatcher watcher;
        QVERIFY(openDescriptors() > before);
    }
    QCOMPARE(openDescriptors(), before);
}

void tst_SignalWatcher::withoutDescriptorsSignalsKeepTheirDefault_data()
{
    signals_data();
}

void tst_SignalWatcher::withoutDescriptorsSignalsKeepTheirDefault()
{
    QFETCH(int, number);
    rlimit usual{};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none{0, usual.rlim_max};
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
    struct sigaction action = {};
    {
        const SignalWatcher watcher;
        QCOMPARE(::sigaction(number, nullptr, &action), 0);
    }
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &usual), 0);
    QVERIFY(action.sa_handler == SIG_DFL);
}

QTEST_GUILESS_MAIN(tst_SignalWatcher)
#include "tst_signalwatcher.moc"
