// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/// The kernel's figures for a running process. Memory is in KiB.
struct ProcessFigures
{
    qint64 rss = 0;
    qint64 pss = 0;       ///< what is shared counts in parts
    qint64 anonymous = 0; ///< memory without a file: heap, stacks, pictures
    qint64 heap = 0;      ///< the resident part of the main arena, [heap]
    int descriptors = 0;
    int sockets = 0;
    int timerDescriptors = 0; ///< kernel timers; the toolkit's own are not visible from outside
    int children = 0;         ///< running or not yet waited for
    int threads = 0;
    qint64 voluntarySwitches = 0; ///< of all threads: how often it waited, timers included
    qint64 cpuMs = 0;             ///< user and system time, children not counted
};

/// Reads the figures of process `pid`; all 0 when there is none.
ProcessFigures processFigures(qint64 pid);
