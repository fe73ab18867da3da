// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>

#include <QByteArray>
#include <QList>
#include <QStringList>

#include "processfigures.h"

namespace VarnelBench {

/// A program to be measured: what to start, and what to add to the environment.
struct Subject
{
    QString name;
    QStringList command;
    QStringList environment = {}; ///< "NAME=value"; the process has these and the bench's own
    double target = 0;            ///< as in Series
};

/// The resources that a process has used so far.
struct Usage
{
    double cpuMs = 0; ///< its own, of all threads, finer than the kernel's figure
    ProcessFigures figures;
};

/// One run of a subject. It is started by posix_spawn, its log dropped; it is ended with the object.
class Run
{
    Q_DISABLE_COPY_MOVE(Run)

public:
    /// Starts it; ends this program when that fails. With `log`, standard error is written to that file.
    explicit Run(const Subject& subject, const QString& log = {});
    ~Run();

    /// CPU time of the process so far, in milliseconds.
    double cpuMs() const;
    Usage usage() const;
    bool isRunning() const;
    pid_t pid() const { return process; }

private:
    pid_t process = 0;
    clockid_t clock{};
};

/// Milliseconds since some time in the past.
double nowMs();

} // namespace VarnelBench
