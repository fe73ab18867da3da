// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace VarnelBench {

/// The values of one subject of a figure, one for each round.
struct Series
{
    std::string subject;
    double target = 0; ///< the highest ratio to the floor that is wanted; 0 where none is
    std::vector<double> values = {};
};

/// Prints one row of a Markdown table for each series: figure, subject, median and range, the same of the
/// ratios to the value of the first series in the same round, target and verdict.
void printFigure(const std::string& figure, const std::string& unit, const std::vector<Series>& all);

double medianOf(std::vector<double> values);

/// One piece of work to be measured in this process.
struct Work
{
    std::string subject;
    std::function<void()> run;
    double target = 0;
    std::function<void()> prepare = {}; ///< run before each measurement, not measured itself
};

/// Reads a clock of the kernel, in microseconds.
double nowUs(clockid_t clock = CLOCK_MONOTONIC);

/// Runs all of them in turn, `rounds` times after one round that does not count, so that whatever slows the
/// machine down slows all of them. The values are microseconds, each divided by `share`: by default CPU time
/// of the calling thread, which other programs hardly change; the time that passes where the kernel or a
/// child does the work.
std::vector<Series> measureInTurn(const std::vector<Work>& all, int rounds, double share = 1,
                                  clockid_t clock = CLOCK_THREAD_CPUTIME_ID);

/// The number of rounds that the command line asks for by "--rounds N", at least 9; 1 with "--quick".
int roundsFrom(int argc, char* argv[], int usual = 15);

/// Sends standard error to the null device: writing the log is part of the work, reading it is not.
void dropLog();

} // namespace VarnelBench
