// SPDX-License-Identifier: MIT
#include <cerrno>
#include <chrono>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "logrecorder.h"
#include "logrules.h"
#include "scopedsetting.h"
#include "scriptrunner.h"

using namespace Varnel;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(Varnel::ScriptResult)

/// Real scripts, good and bad, and what is left of them afterwards.
class tst_ScriptRunner : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void pathIsInTheScriptDirectory();
    void runnable_data();
    void runnable();
    void argumentsArriveAsTheyAre_data();
    void argumentsArriveAsTheyAre();
    void noArguments();
    void pathWithOddLetters_data();
    void pathWithOddLetters();
    void exitStatusIsIgnored_data();
    void exitStatusIsIgnored();
    void cannotBeStarted_data();
    void cannotBeStarted();
    void argumentTooLong();
    void hangingScriptIsKilled_data();
    void hangingScriptIsKilled();
    void childrenAreKilledAtTheLimit();
    void scriptInTimeIsNotKilled();
    void backgroundChildIsNotWaitedFor();
    void muchOutputDoesNotBlock();
    void readsNoInput();
    void missingScriptIsLogged_data();
    void missingScriptIsLogged();
    void signalsAreFresh();
    void olderKernel(); // the last one: it cannot be undone

private:
    QString write(const QString& name, const QByteArray& contents, bool executable = true) const;
    QString script(const QString& name, const QByteArray& commands) const
    {
        return write(name, "#!/bin/sh\n" + commands);
    }
    QByteArray contents(const QString& name) const
    {
        QFile file(directory.filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir directory;
};

namespace {

constexpr auto plenty = 20000ms; ///< a limit that no test reaches
constexpr auto shortLimit = 150ms;

bool isAlive(const QByteArray& pid)
{
    return ::kill(pid.trimmed().toInt(), 0) == 0;
}

/// Lets the kernel answer as those before 5.3 do, which give no descriptors of processes.
bool denyProcessDescriptors()
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pidfd_open, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(filter), filter};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

} // namespace

void tst_ScriptRunner::initTestCase()
{
    QVERIFY(directory.isValid());
    // Orphans of the scripts come to this process, which can then tell whether any is left.
    QCOMPARE(::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0), 0);
}

void tst_ScriptRunner::cleanup()
{
    // No zombie and no running child is left.
    errno = 0;
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
        QFAIL("a child was left unreaped");
    }
    QCOMPARE(errno, ECHILD);
}

QString tst_ScriptRunner::write(const QString& name, const QByteArray& contents, bool executable) const
{
    QString path = directory.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()) {
        qFatal("cannot write %s", qPrintable(path));
    }
    file.close();
    file.setPermissions(executable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                   : QFile::ReadOwner | QFile::WriteOwner);
    return path;
}

void tst_ScriptRunner::pathIsInTheScriptDirectory()
{
    QCOMPARE(scriptPath(QStringLiteral("r7m.sh")), QStringLiteral("/usr/local/bin/r7m.sh"));
    const ScopedSetting<QString> scriptDir("Files", "ScriptDir", QStringLiteral("/a dir/%1"));
    QCOMPARE(scriptPath(QStringLiteral("r7m.sh")), QStringLiteral("/a dir/%1/r7m.sh"));
}

void tst_ScriptRunner::runnable_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("runnable");
    const QString good = script(QStringLiteral("good"), "exit 0\n");
    QDir(directory.path()).mkdir(QStringLiteral("a directory"));
    QFile::link(good, directory.filePath(QStringLiteral("link")));
    QFile::link(QStringLiteral("/nowhere/at/all"), directory.filePath(QStringLiteral("dangling")));
    QTest::newRow("executable file: runs") << good << true;
    QTest::newRow("link to it: runs") << directory.filePath(QStringLiteral("link")) << true;
    QTest::newRow("dangling link: missing") << directory.filePath(QStringLiteral("dangling")) << false;
    QTest::newRow("missing") << directory.filePath(QStringLiteral("none")) << false;
    QTest::newRow("empty path: missing") << QString() << false;
    QTest::newRow("a directory: missing") << directory.filePath(QStringLiteral("a directory")) << false;
    QTest::newRow("not executable: missing") << write(QStringLiteral("plain"), "#!/bin/sh\n", false) << false;
}

void tst_ScriptRunner::runnable()
{
    QFETCH(QString, path);
    QFETCH(bool, runnable);
    QCOMPARE(isRunnableScript(path), runnable);
    QCOMPARE(runScript(path, {}, plenty), runnable ? ScriptResult::Finished : ScriptResult::Missing);
}

void tst_ScriptRunner::argumentsArriveAsTheyAre_data()
{
    QTest::addColumn<QString>("argument");
    QTest::newRow("a word") << QStringLiteral("add");
    QTest::newRow("empty") << QString();
    QTest::newRow("blanks") << QStringLiteral(" two  words ");
    QTest::newRow("quotes") << QStringLiteral("\"'`\\");
    QTest::newRow("line end") << QStringLiteral("a\nb\n");
    QTest::newRow("shell text") << QStringLiteral("$HOME $(touch x) ; touch y & * ~ | > z");
    QTest::newRow("a dash") << QStringLiteral("-n");
    QTest::newRow("per cent") << QStringLiteral("%1 %s");
    QTest::newRow("beyond ASCII") << QStringLiteral("\u00e9\u20ac");
}

void tst_ScriptRunner::argumentsArriveAsTheyAre()
{
    QFETCH(QString, argument);
    const QString path =
        script(QStringLiteral("record"), "printf '%s\\0' \"$@\" > \"$(dirname \"$0\")/argv\"\n");
    const QStringList arguments{QStringLiteral("first"), argument, QStringLiteral("last")};
    QCOMPARE(runScript(path, arguments, plenty), ScriptResult::Finished);
    QCOMPARE(contents(QStringLiteral("argv")),
             QByteArray("first") + '\0' + argument.toUtf8() + '\0' + "last" + '\0');
}

void tst_ScriptRunner::noArguments()
{
    const QString path = script(QStringLiteral("count"), "echo $# > \"$(dirname \"$0\")/count.out\"\n");
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
    QCOMPARE(contents(QStringLiteral("count.out")), QByteArray("0\n"));
}

void tst_ScriptRunner::pathWithOddLetters_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("blanks") << QStringLiteral("a script with blanks.sh");
    QTest::newRow("quotes") << QStringLiteral("a\"b'c.sh");
    QTest::newRow("shell text") << QStringLiteral("$(exit 3);x.sh");
    QTest::newRow("leading dash") << QStringLiteral("-rf");
    QTest::newRow("beyond ASCII") << QStringLiteral("\u00e9.sh");
}

void tst_ScriptRunner::pathWithOddLetters()
{
    QFETCH(QString, name);
    const QString path = script(name, "echo ran > \"$(dirname -- \"$0\")/ran\"\n");
    QFile::remove(directory.filePath(QStringLiteral("ran")));
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
    QCOMPARE(contents(QStringLiteral("ran")), QByteArray("ran\n"));
}

void tst_ScriptRunner::exitStatusIsIgnored_data()
{
    QTest::addColumn<QByteArray>("commands");
    QTest::newRow("exit 0: finished") << QByteArray("exit 0\n");
    QTest::newRow("exit 1: finished") << QByteArray("exit 1\n");
    QTest::newRow("exit 127: finished") << QByteArray("exit 127\n");
    QTest::newRow("command not found: finished") << QByteArray("no-such-command\n");
    QTest::newRow("killed by SIGKILL: finished") << QByteArray("kill -KILL $$\n");
    QTest::newRow("killed by SIGSEGV: finished") << QByteArray("ulimit -c 0; kill -SEGV $$\n");
    QTest::newRow("syntax error: finished") << QByteArray("if\n");
    QTest::newRow("empty script: finished") << QByteArray();
}

void tst_ScriptRunner::exitStatusIsIgnored()
{
    QFETCH(QByteArray, commands);
    const LogRecorder log;
    QCOMPARE(runScript(script(QStringLiteral("ends"), commands), {}, plenty), ScriptResult::Finished);
    QVERIFY(log.lines().isEmpty());
}

void tst_ScriptRunner::cannotBeStarted_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::newRow("no such interpreter") << QByteArray("#!/no/such/interpreter\n");
    QTest::newRow("interpreter is a directory") << QByteArray("#!/tmp\n");
    QTest::newRow("broken program") << QByteArray("\x7f"
                                                  "ELF and nothing more");
}

void tst_ScriptRunner::cannotBeStarted()
{
    QFETCH(QByteArray, contents);
    const QString path = write(QStringLiteral("unstartable"), contents);
    const LogRecorder log;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::FailedToStart);
    QVERIFY(clock.elapsed() < 10000);
    QVERIFY(log.lines().isEmpty());
    const LogRules rules("varnel.script.debug=true");
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::FailedToStart);
    QVERIFY(log.texts().isEmpty());
    QCOMPARE(log.texts(QStringLiteral("varnel.script")).size(), 1);
}

void tst_ScriptRunner::argumentTooLong()
{
    // The kernel takes no single argument of 128 KiB (MAX_ARG_STRLEN).
    const LogRecorder log;
    const LogRules rules("varnel.script.debug=true");
    const QString path = script(QStringLiteral("fine"), "exit 0\n");
    QCOMPARE(runScript(path, {QString(131072, QLatin1Char('x'))}, plenty), ScriptResult::FailedToStart);
    QCOMPARE(log.lines().size(), 1);
}

void tst_ScriptRunner::hangingScriptIsKilled_data()
{
    QTest::addColumn<QByteArray>("commands");
    QTest::newRow("sleeping") << QByteArray("exec sleep 1000\n");
    QTest::newRow("busy") << QByteArray("while :; do :; done\n");
    QTest::newRow("deaf to SIGTERM") << QByteArray("trap '' TERM HUP INT; while :; do :; done\n");
    QTest::newRow("stopped") << QByteArray("kill -STOP $$\n");
}

void tst_ScriptRunner::hangingScriptIsKilled()
{
    QFETCH(QByteArray, commands);
    const QString path = script(QStringLiteral("hangs"), "echo $$ > \"$(dirname \"$0\")/pid\"\n" + commands);
    const LogRecorder log;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(runScript(path, {}, shortLimit), ScriptResult::TimedOut);
    QVERIFY2(clock.elapsed() >= shortLimit.count(), qPrintable(QString::number(clock.elapsed())));
    QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(!isAlive(contents(QStringLiteral("pid"))));
    QVERIFY(log.texts().isEmpty());
}

void tst_ScriptRunner::childrenAreKilledAtTheLimit()
{
    const QString path = script(QStringLiteral("parent"), "here=$(dirname \"$0\")\n"
                                                          "sleep 1000 & echo $! > \"$here/child\"\n"
                                                          "echo $$ > \"$here/pid\"\n"
                                                          "wait\n");
    const LogRecorder log;
    QCOMPARE(runScript(path, {}, 500ms), ScriptResult::TimedOut);
    QVERIFY(!isAlive(contents(QStringLiteral("pid"))));
    const QByteArray child = contents(QStringLiteral("child"));
    QVERIFY(!child.isEmpty());
    // Killed as well; its body comes to this process, since its parent is gone.
    int status = 0;
    QCOMPARE(::waitpid(child.trimmed().toInt(), &status, 0), child.trimmed().toInt());
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), SIGKILL);
}

void tst_ScriptRunner::scriptInTimeIsNotKilled()
{
    const QString path =
        script(QStringLiteral("slow"), "sleep 0.3; echo done > \"$(dirname \"$0\")/slow.out\"\n");
    const LogRecorder log;
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
    QCOMPARE(contents(QStringLiteral("slow.out")), QByteArray("done\n"));
    QVERIFY(log.lines().isEmpty());
}

void tst_ScriptRunner::backgroundChildIsNotWaitedFor()
{
    // A service that a script starts keeps the script's output open for as long as it lives.
    const QString path =
        script(QStringLiteral("service"), "sleep 1000 & echo $! > \"$(dirname \"$0\")/child\"\n");
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
    QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
    const int child = contents(QStringLiteral("child")).trimmed().toInt();
    QVERIFY(child > 0);
    QCOMPARE(::kill(child, 0), 0); // it lives on
    QCOMPARE(::kill(child, SIGKILL), 0);
    QCOMPARE(::waitpid(child, nullptr, 0), child);
}

void tst_ScriptRunner::muchOutputDoesNotBlock()
{
    // Far more than a pipe holds, on both streams.
    const QString path = script(QStringLiteral("chatty"), "head -c 1000000 /dev/zero\n"
                                                          "head -c 1000000 /dev/zero >&2\n"
                                                          "echo done > \"$(dirname \"$0\")/chatty.out\"\n");
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
    QCOMPARE(contents(QStringLiteral("chatty.out")), QByteArray("done\n"));
}

void tst_ScriptRunner::readsNoInput()
{
    // A script that asks a question must not wait for an answer that nobody can type.
    const QString path =
        script(QStringLiteral("asks"), "read answer; echo \"[$answer]\" > \"$(dirname \"$0\")/answer\"\n");
    QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
    QCOMPARE(contents(QStringLiteral("answer")), QByteArray("[]\n"));
}

void tst_ScriptRunner::missingScriptIsLogged_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<ScriptResult>("outcome");
    QTest::addColumn<bool>("logged");
    QTest::newRow("missing: logged") << directory.filePath(QStringLiteral("none")) << ScriptResult::Missing
                                     << true;
    QTest::newRow("not executable: logged")
        << write(QStringLiteral("plain"), "#!/bin/sh\n", false) << ScriptResult::Missing << true;
    QTest::newRow("a directory: logged") << directory.path() << ScriptResult::Missing << true;
    QTest::newRow("good: silent") << script(QStringLiteral("good"), "exit 0\n") << ScriptResult::Finished
                                  << false;
    QTest::newRow("fails: silent") << script(QStringLiteral("bad"), "exit 9\n") << ScriptResult::Finished
                                   << false;
}

void tst_ScriptRunner::missingScriptIsLogged()
{
    QFETCH(QString, path);
    QFETCH(bool, logged);
    const LogRecorder log;
    QTEST(runScriptOrLog(path, {QStringLiteral("add")}), "outcome");
    QCOMPARE(log.texts(),
             logged ? QStringList{QStringLiteral("Script ' \"%1\" ' not found, do nothing").arg(path)}
                    : QStringList());
}

void tst_ScriptRunner::signalsAreFresh()
{
    // A script and its programs must end on SIGTERM and on a broken pipe, whatever the panel does with them.
    const QString path =
        script(QStringLiteral("signals"),
               "grep -E '^Sig(Blk|Ign)' /proc/self/status > \"$(dirname \"$0\")/signals.out\"\n");
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    QCOMPARE(::pthread_sigmask(SIG_BLOCK, &all, &before), 0);
    const auto pipeBefore = ::signal(SIGPIPE, SIG_IGN);
    const ScriptResult result = runScript(path, {}, plenty);
    static_cast<void>(::signal(SIGPIPE, pipeBefore));
    QCOMPARE(::pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
    QCOMPARE(result, ScriptResult::Finished);
    const QList<QByteArray> lines = contents(QStringLiteral("signals.out")).split('\n');
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines.at(0), QByteArray("SigBlk:\t0000000000000000"));
    const quint64 ignored = lines.at(1).split('\t').constLast().toULongLong(nullptr, 16);
    QCOMPARE(ignored & 1ULL << unsigned(SIGPIPE - 1), quint64(0));
}

void tst_ScriptRunner::olderKernel()
{
    QVERIFY(denyProcessDescriptors());
    QCOMPARE(::syscall(SYS_pidfd_open, ::getpid(), 0), -1L);
    const LogRecorder log;
    QCOMPARE(runScript(script(QStringLiteral("slow"), "sleep 0.1\n"), {}, plenty), ScriptResult::Finished);
    QVERIFY(log.lines().isEmpty());
    QCOMPARE(runScript(script(QStringLiteral("hangs"), "exec sleep 1000\n"), {}, shortLimit),
             ScriptResult::TimedOut);
}

QTEST_GUILESS_MAIN(tst_ScriptRunner)
#include "tst_scriptrunner.moc"
