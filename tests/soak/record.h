// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QString>

#include "processfigures.h"

/// The actions on the panel and their results since the start.
struct Counts
{
    qint64 frames = 0;
    qint64 logLines = 0;
    qint64 logOctets = 0;
    qint64 requests = 0;
    int cycles = 0;
    int reloads = 0;
    int languages = 0;
    int losses = 0;
    int downloads = 0;
    int darkenings = 0;
    int errorPages = 0;
    int failures = 0;
};

/// The record of a run: a CSV file with one line for each sample, written through at once so that a run that
/// is cut short keeps all but its last seconds.
class Record
{
public:
    /// Opens `path` and writes the heading; false when it cannot be written.
    [[nodiscard]] bool open(const QString& path);
    /// Adds a line with the time since open(). `step` names what is going on.
    void add(const QString& step, const ProcessFigures& panel, const ProcessFigures& driver,
             const Counts& counts);

private:
    QFile file;
    QElapsedTimer clock;
};
