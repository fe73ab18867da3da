// SPDX-License-Identifier: MIT
#include <cerrno>
#include <chrono>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <csignal>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "logrecorder.h"
#include "rows.h"
#include "scopedsetting.h"
#include "scriptrunner.h"

using namespace Varnel;
using namespace std::chrono_literals;

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

/// Real scripts, good and bad, and what is left of them afterwards.
class tst_ScriptRunner : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(directory.isValid());
        // Orphans of the scripts come to this process, which can then tell whether any is left.
        QCOMPARE(::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0), 0);
    }

    void cleanup()
    {
        // No zombie and no running child is left.
        errno = 0;
        while (::waitpid(-1, nullptr, WNOHANG) > 0) {
            QFAIL("a child was left unreaped");
        }
        QCOMPARE(errno, ECHILD);
    }

    void pathIsInTheScriptDirectory()
    {
        QCOMPARE(scriptPath("r7m.sh"_s), "/usr/local/bin/r7m.sh"_s);
        const ScopedSetting<QString> scriptDir("Files", "ScriptDir", "/a dir/%1"_s);
        QCOMPARE(scriptPath("r7m.sh"_s), "/a dir/%1/r7m.sh"_s);
    }

    void runnable_data()
    {
        const Rows<QString, bool> row("path", "runnable");
        const QString good = script("good"_s, "exit 0\n");
        QDir(directory.path()).mkdir("a directory"_s);
        QFile::link(good, directory.filePath("link"_s));
        QFile::link("/nowhere/at/all"_s, directory.filePath("dangling"_s));
        row("executable file: runs", good, true);
        row("link to it: runs", directory.filePath("link"_s), true);
        row("dangling link: missing", directory.filePath("dangling"_s), false);
        row("missing", directory.filePath("none"_s), false);
        row("empty path: missing", {}, false);
        row("a directory: missing", directory.filePath("a directory"_s), false);
        row("not executable: missing", write("plain"_s, "#!/bin/sh\n", false), false);
    }

    void runnable()
    {
        QFETCH(QString, path);
        QFETCH(bool, runnable);
        const ScriptResult result = runnable ? ScriptResult::Finished : ScriptResult::Missing;
        const LogRecorder log;
        QCOMPARE(isRunnableScript(path), runnable);
        QCOMPARE(runScript(path, {}, plenty), result);
        QVERIFY(log.lines().isEmpty());
        QCOMPARE(runScriptOrLog(path, {"add"_s}), result);
        QCOMPARE(log.texts().join(QLatin1Char(';')),
                 runnable ? QString() : "Script ' \"%1\" ' not found, do nothing"_s.arg(path));
    }

    void argumentsArriveAsTheyAre()
    {
        const QString path = script("record"_s, "printf '%s\\0' $# \"$@\" > \"$(dirname \"$0\")/argv\"\n");
        const QStringList arguments{"add"_s,    QString(),  " two  words "_s,
                                    "\"'`\\"_s, "a\nb\n"_s, "$HOME $(touch x) ; touch y & * ~ | > z"_s,
                                    "-n"_s,     "%1 %s"_s,  "\u00e9\u20ac"_s};
        QCOMPARE(runScript(path, arguments, plenty), ScriptResult::Finished);
        QByteArray wanted("9\0", 2);
        for (const QString& argument : arguments) {
            wanted += argument.toUtf8() + '\0';
        }
        QCOMPARE(contents("argv"_s), wanted);
        QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
        QCOMPARE(contents("argv"_s), QByteArray("0\0", 2));
    }

    void pathWithOddLetters()
    {
        for (const QString& name :
             {"a script with blanks.sh"_s, "a\"b'c.sh"_s, "$(exit 3);x.sh"_s, "-rf"_s, "\u00e9.sh"_s}) {
            const QString path = script(name, "echo ran > \"$(dirname -- \"$0\")/ran\"\n");
            QFile::remove(directory.filePath("ran"_s));
            QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
            QCOMPARE(contents("ran"_s), QByteArray("ran\n"));
        }
    }

    void exitStatusIsIgnored()
    {
        const LogRecorder log;
        for (const char* const commands : {"exit 0\n", "exit 1\n", "exit 127\n", "no-such-command\n",
                                           "kill -KILL $$\n", "ulimit -c 0; kill -SEGV $$\n", "if\n", ""}) {
            QCOMPARE(runScript(script("ends"_s, commands), {}, plenty), ScriptResult::Finished);
        }
        QVERIFY(log.lines().isEmpty());
    }

    void cannotBeStarted()
    {
        QElapsedTimer clock;
        clock.start();
        for (const char* const contents :
             {"#!/no/such/interpreter\n", "#!/tmp\n", "\177ELF and nothing more"}) {
            const QString path = write("unstartable"_s, contents);
            const LogRecorder log;
            QCOMPARE(runScript(path, {}, plenty), ScriptResult::FailedToStart);
            QVERIFY(log.lines().isEmpty());
            const LogRules rules("varnel.script.debug=true");
            QCOMPARE(runScript(path, {}, plenty), ScriptResult::FailedToStart);
            QVERIFY(log.texts().isEmpty());
            QCOMPARE(log.texts("varnel.script"_s).size(), 1);
        }
        QVERIFY(clock.elapsed() < 10000);
    }

    void argumentTooLong()
    {
        // The kernel takes no single argument of 128 KiB (MAX_ARG_STRLEN).
        const LogRecorder log;
        const LogRules rules("varnel.script.debug=true");
        const QString path = script("fine"_s, "exit 0\n");
        QCOMPARE(runScript(path, {QString(131072, QLatin1Char('x'))}, plenty), ScriptResult::FailedToStart);
        QCOMPARE(log.lines().size(), 1);
    }

    void hangingScriptIsKilled_data()
    {
        const Rows<QByteArray> row("commands");
        row("sleeping", "exec sleep 1000\n");
        row("busy", "while :; do :; done\n");
        row("deaf to SIGTERM", "trap '' TERM HUP INT; while :; do :; done\n");
        row("stopped", "kill -STOP $$\n");
    }

    void hangingScriptIsKilled()
    {
        QFETCH(QByteArray, commands);
        const QString path = script("hangs"_s, "echo $$ > \"$(dirname \"$0\")/pid\"\n" + commands);
        const LogRules rules("varnel.script.debug=true");
        const LogRecorder log;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(runScript(path, {}, shortLimit), ScriptResult::TimedOut);
        QVERIFY2(clock.elapsed() >= shortLimit.count(), qPrintable(QString::number(clock.elapsed())));
        QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!isAlive(contents("pid"_s)));
        QVERIFY(log.texts().isEmpty());
        QCOMPARE(log.texts("varnel.script"_s).filter("Killed after"_s),
                 QStringList{"Killed after %1 ms: \"%2\""_s.arg(shortLimit.count()).arg(path)});
    }

    void childrenAreKilledAtTheLimit()
    {
        const QString path = script("parent"_s, "here=$(dirname \"$0\")\n"
                                                "sleep 1000 & echo $! > \"$here/child\"\n"
                                                "echo $$ > \"$here/pid\"\n"
                                                "wait\n");
        const LogRecorder log;
        QCOMPARE(runScript(path, {}, 500ms), ScriptResult::TimedOut);
        QVERIFY(!isAlive(contents("pid"_s)));
        const QByteArray child = contents("child"_s);
        QVERIFY(!child.isEmpty());
        // Killed as well; its body comes to this process, since its parent is gone.
        int status = 0;
        QCOMPARE(::waitpid(child.trimmed().toInt(), &status, 0), child.trimmed().toInt());
        QVERIFY(WIFSIGNALED(status));
        QCOMPARE(WTERMSIG(status), SIGKILL);
    }

    void backgroundChildIsNotWaitedFor()
    {
        // A service that a script starts keeps the script's output open for as long as it lives.
        const QString path = script("service"_s, "sleep 1000 & echo $! > \"$(dirname \"$0\")/child\"\n");
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
        QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
        const int child = contents("child"_s).trimmed().toInt();
        QVERIFY(child > 0);
        QCOMPARE(::kill(child, 0), 0); // it lives on
        QCOMPARE(::kill(child, SIGKILL), 0);
        QCOMPARE(::waitpid(child, nullptr, 0), child);
    }

    void runsToItsEnd_data()
    {
        const Rows<QByteArray> row("commands");
        row("slow, but in time", "sleep 0.3; echo done");
        row("far more output than a pipe holds",
            "head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2; echo done");
        row("a question that nobody can answer", "read answer; echo \"done$answer\"");
    }

    void runsToItsEnd()
    {
        QFETCH(QByteArray, commands);
        QFile::remove(directory.filePath("end"_s));
        const QString path = script("ends"_s, commands + " > \"$(dirname \"$0\")/end\"\n");
        const LogRecorder log;
        QCOMPARE(runScript(path, {}, plenty), ScriptResult::Finished);
        QCOMPARE(contents("end"_s), QByteArray("done\n"));
        QVERIFY(log.lines().isEmpty());
    }

    void signalsAreFresh()
    {
        // A script and its programs must end on SIGTERM and on a broken pipe, whatever the panel does with
        // them.
        const QString path = script(
            "signals"_s, "grep -E '^Sig(Blk|Ign)' /proc/self/status > \"$(dirname \"$0\")/signals.out\"\n");
        sigset_t all;
        sigset_t before;
        ::sigfillset(&all);
        QCOMPARE(::pthread_sigmask(SIG_BLOCK, &all, &before), 0);
        const auto pipeBefore = ::signal(SIGPIPE, SIG_IGN);
        const ScriptResult result = runScript(path, {}, plenty);
        static_cast<void>(::signal(SIGPIPE, pipeBefore));
        QCOMPARE(::pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
        QCOMPARE(result, ScriptResult::Finished);
        const QList<QByteArray> lines = contents("signals.out"_s).split('\n');
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines.at(0), QByteArray("SigBlk:\t0000000000000000"));
        const quint64 ignored = lines.at(1).split('\t').constLast().toULongLong(nullptr, 16);
        QCOMPARE(ignored & 1ULL << unsigned(SIGPIPE - 1), quint64(0));
    }

    void olderKernel() // the last one: it cannot be undone
    {
        QVERIFY(denyProcessDescriptors());
        QCOMPARE(::syscall(SYS_pidfd_open, ::getpid(), 0), -1L);
        const LogRecorder log;
        QCOMPARE(runScript(script("slow"_s, "sleep 0.1\n"), {}, plenty), ScriptResult::Finished);
        QVERIFY(log.lines().isEmpty());
        QCOMPARE(runScript(script("hangs"_s, "exec sleep 1000\n"), {}, shortLimit), ScriptResult::TimedOut);
    }

private:
    QString write(const QString& name, const QByteArray& contents, bool executable = true) const
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

QTEST_GUILESS_MAIN(tst_ScriptRunner)
#include "tst_scriptrunner.moc"
