// SPDX-License-Identifier: MIT
#include "scriptfloor.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QtDebug>

namespace VarnelBench {

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

int spawnAndWait(const QByteArray& path, const QByteArray& argument)
{
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    QByteArray name = path;
    QByteArray text = argument;
    char* const arguments[] = {name.data(), text.data(), nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, path.constData(), &actions, nullptr, arguments, environ) != 0) {
        qFatal("posix_spawn failed");
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    ::posix_spawn_file_actions_destroy(&actions);
    return status;
}

std::vector<Series> measureScripts(const std::vector<Work>& works, int rounds)
{
    constexpr int runsPerRound = 20;
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

} // namespace VarnelBench
