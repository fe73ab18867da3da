// SPDX-License-Identifier: MIT
#include "subject.h"

#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QtDebug>

namespace VarnelBench {

namespace {

double inMs(const timespec& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

QVector<char*> pointers(QList<QByteArray>* texts)
{
    QVector<char*> result;
    for (QByteArray& text : *texts) {
        result.append(text.data());
    }
    result.append(nullptr);
    return result;
}

} // namespace

double nowMs()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return inMs(time);
}

Run::Run(const Subject& subject, const QString& log)
{
    QList<QByteArray> arguments;
    for (const QString& argument : subject.command) {
        arguments.append(argument.toLocal8Bit());
    }
    // The first of two values of a variable is the one that counts.
    QList<QByteArray> environment;
    for (const QString& variable : subject.environment) {
        environment.append(variable.toLocal8Bit());
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        environment.append(*variable);
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const QByteArray errors = log.isEmpty() ? QByteArray("/dev/null") : QFile::encodeName(log);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.constData(),
                                       O_WRONLY | O_CREAT | O_APPEND, 0644);
    const int error = ::posix_spawn(&process, arguments.first().constData(), &actions, nullptr,
                                    pointers(&arguments).data(), pointers(&environment).data());
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0 || ::clock_getcpuclockid(process, &clock) != 0) {
        qFatal("cannot start %s", arguments.first().constData());
    }
}

Run::~Run()
{
    ::kill(process, SIGTERM);
    ::waitpid(process, nullptr, 0);
}

double Run::cpuMs() const
{
    timespec time{};
    ::clock_gettime(clock, &time);
    return inMs(time);
}

bool Run::isRunning() const
{
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

Usage Run::usage() const
{
    const double cpu = cpuMs();
    return {cpu, processFigures(process)};
}

} // namespace VarnelBench
