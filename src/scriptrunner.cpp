// SPDX-License-Identifier: MIT
#include "scriptrunner.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QVector>
#include <QtDebug>

#include "settings.h"
#include "watchdog.h"

namespace Varnel {

namespace {

// Off by default: the panel's log does not report a script that fails or hangs.
Q_LOGGING_CATEGORY(lcScript, "varnel.script", QtWarningMsg)

using SteadyClock = std::chrono::steady_clock;

/// The text in the encoding of file names and arguments.
QByteArray nativeText(const QString& text)
{
    return QFile::encodeName(text);
}

/// The environment of a script: the null device as input and output, default signal handling, and a process
/// group of its own, so that a script which overruns its time is killed together with the programs it has
/// started.
class SpawnOptions
{
    Q_DISABLE_COPY_MOVE(SpawnOptions)

public:
    explicit SpawnOptions(bool showErrors)
    {
        ::posix_spawn_file_actions_init(&actions);
        // The output is not used, and a pipe would break when a background child outlives the script.
        ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, nullDevice, O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, nullDevice, O_WRONLY, 0);
        if (!showErrors) {
            ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, nullDevice, O_WRONLY, 0);
        }
        sigset_t set;
        ::posix_spawnattr_init(&attributes);
        ::sigemptyset(&set);
        ::posix_spawnattr_setsigmask(&attributes, &set);
        ::sigaddset(&set, SIGPIPE); // which the toolkit ignores
        ::posix_spawnattr_setsigdefault(&attributes, &set);
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawnattr_setflags(&attributes,
                                   POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnOptions()
    {
        ::posix_spawnattr_destroy(&attributes);
        ::posix_spawn_file_actions_destroy(&actions);
    }

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};

private:
    static constexpr auto nullDevice = "/dev/null";
};

/// Starts `path`; returns 0 and the process in `pid`, or the error number. posix_spawn is used because fork
/// would copy the page tables of the whole panel, which takes longer than most scripts.
int spawn(const QString& path, const QStringList& arguments, pid_t* pid)
{
    QVector<QByteArray> texts{nativeText(path)};
    for (const QString& argument : arguments) {
        texts.append(nativeText(argument));
    }
    QVector<char*> pointers;
    for (QByteArray& text : texts) {
        pointers.append(text.data());
    }
    pointers.append(nullptr);
    const SpawnOptions options(lcScript().isDebugEnabled());
    return ::posix_spawn(pid, pointers.first(), &options.actions, &options.attributes, pointers.data(),
                         environmentForPrograms().data());
}

/// Reaps the child if it has ended; with `options` 0 waits for its end. True as well when the child has
/// already been reaped.
bool reap(pid_t pid, int options)
{
    pid_t result = 0;
    do {
        result = ::waitpid(pid, nullptr, options);
    } while (result < 0 && errno == EINTR);
    return result != 0;
}

/// Waits on a descriptor of the child, which Linux offers since 5.3. False at the deadline.
bool awaitDescriptor(int descriptor, SteadyClock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now());
        pollfd ended{descriptor, POLLIN, 0};
        const int result = ::poll(&ended, 1, static_cast<int>(std::max<qint64>(0, left.count())));
        if (result >= 0 || errno != EINTR) {
            return result > 0;
        }
    }
}

/// Waits where the kernel has no such descriptor: polls the child.
bool awaitByLooking(pid_t pid, SteadyClock::time_point deadline)
{
    constexpr std::chrono::milliseconds longestPause{16};
    for (std::chrono::milliseconds pause{1}; !reap(pid, WNOHANG); pause = std::min(2 * pause, longestPause)) {
        if (SteadyClock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

/// Waits for the child's end and reaps it. False, the child still running, at the limit.
bool awaitEnd(pid_t pid, std::chrono::milliseconds limit)
{
    const auto deadline = SteadyClock::now() + limit;
    const auto descriptor = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (descriptor < 0) {
        return awaitByLooking(pid, deadline);
    }
    const bool ended = awaitDescriptor(descriptor, deadline);
    ::close(descriptor);
    return ended && reap(pid, 0);
}

void killGroup(pid_t pid)
{
    ::kill(-pid, SIGKILL);
    reap(pid, 0); // leaves no zombie
}

} // namespace

QString scriptPath(const QString& name)
{
    return Settings::getFilesScriptDir() + QLatin1Char('/') + name;
}

bool isRunnableScript(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

ScriptResult runScript(const QString& path, const QStringList& arguments, std::chrono::milliseconds limit)
{
    if (!isRunnableScript(path)) {
        return ScriptResult::Missing;
    }
    feedWatchdog(); // nothing else feeds it while the script runs
    pid_t pid = 0;
    if (const int error = spawn(path, arguments, &pid); error != 0) {
        qCDebug(lcScript) << "Cannot start" << path << ":" << qt_error_string(error);
        return ScriptResult::FailedToStart;
    }
    if (awaitEnd(pid, limit)) {
        return ScriptResult::Finished;
    }
    qCDebug(lcScript) << "Killed after" << limit.count() << "ms:" << path;
    killGroup(pid);
    return ScriptResult::TimedOut;
}

ScriptResult runScriptOrLog(const QString& path, const QStringList& arguments)
{
    const ScriptResult result = runScript(path, arguments);
    if (result == ScriptResult::Missing) {
        qDebug() << "Script '" << path << "' not found, do nothing";
    }
    return result;
}

} // namespace Varnel
