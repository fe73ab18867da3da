// SPDX-License-Identifier: MIT
// Starting a script and waiting for its end, against posix_spawn and waitpid: in a small process, and in one
// that has written to as much memory as the panel with its page. Options: --rounds N, --quick.
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include "figures.h"
#include "scriptrunner.h"

using namespace VarnelBench;

namespace {

constexpr int runsPerRound = 20;

/// Starts `path` with null streams and waits for it.
void spawnAndWait(const QByteArray& path)
{
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    QByteArray name = path;
    char argument[] = "add";
    char* const arguments[] = {name.data(), argument, nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, path.constData(), &actions, nullptr, arguments, environ) != 0) {
        qFatal("posix_spawn failed");
    }
    ::waitpid(pid, nullptr, 0);
    ::posix_spawn_file_actions_destroy(&actions);
}

QString writeScript(const QString& path)
{
    QFile script(path);
    if (!script.open(QIODevice::WriteOnly) || script.write("#!/bin/sh\nexit 0\n") < 0) {
        qFatal("cannot write the script");
    }
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

/// As many pages, in small pieces, as the panel has written to by the time its page is shown.
void growToThePanelsSize()
{
    constexpr std::size_t size = 48U << 20U;
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        qFatal("no memory");
    }
    ::madvise(memory, size, MADV_NOHUGEPAGE);
    std::memset(memory, 1, size);
}

/// Single runs in turn, the median of some of them as one value: a run is short, and whatever else the
/// machine does meanwhile hits one or the other.
std::vector<Series> measure(const std::vector<Work>& works, int rounds)
{
    std::vector<Series> result = measureInTurn(works, rounds * runsPerRound, 1, Clock::Wall);
    for (Series& one : result) {
        std::vector<double> medians;
        for (auto run = one.values.begin(); run != one.values.end(); run += runsPerRound) {
            medians.push_back(spreadOf({run, run + runsPerRound}).median);
        }
        one.values = medians;
    }
    return result;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv);
    dropLog();
    const QTemporaryDir directory;
    const QString path = writeScript(directory.filePath(QStringLiteral("script.sh")));
    const QByteArray name = QFile::encodeName(path);
    const std::vector<Work> works = {
        {"posix_spawn, waitpid", [&] { spawnAndWait(name); }},
        {"panel", [&] { Varnel::runScript(path, {QStringLiteral("add")}); }, 1.5},
    };
    printFigure("script start and wait, small process", "us", measure(works, rounds));
    growToThePanelsSize();
    printFigure("script start and wait, process of the panel's size", "us", measure(works, rounds));
    return 0;
}
