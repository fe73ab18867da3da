// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace VarnelBench {

/// The values of one subject of a figure, one for each round.
struct Series
{
    std::string subject;
    std::vector<double> values = {};
    double target = 0; ///< the highest ratio to the floor that is wanted; 0 where none is
};

/// Median, lowest and highest of some numbers.
struct Spread
{
    double median = 0;
    double lowest = 0;
    double highest = 0;
};
Spread spreadOf(std::vector<double> values);

/// Whether a figure's first series is the floor that the others are compared with.
enum class Floor
{
    First,
    None,
};

/// Prints one line for each series, fields separated by tabs: figure, unit, subject, rounds, median, lowest,
/// highest, then the same three of the ratios to the floor's value of the same round, and the target. Fields
/// that do not apply are empty. scripts/bench makes its table of these lines.
void printFigure(const std::string& figure, const std::string& unit, const std::vector<Series>& all,
                 Floor floor = Floor::First);

/// One piece of work to be measured in this process.
struct Work
{
    std::string subject;
    std::function<void()> run;
    double target = 0;
    std::function<void()> prepare = {}; ///< run before each measurement, not measured itself
};

/// Which clock a measurement reads.
enum class Clock
{
    ThreadCpu, ///< CPU time of the calling thread: other programs hardly matter
    Wall,      ///< the time that passes, where the kernel or a child does the work
};

/// Runs all of them in turn, `rounds` times after one round that does not count, so that whatever slows the
/// machine down slows all of them. The values are microseconds, each divided by `share`.
std::vector<Series> measureInTurn(const std::vector<Work>& all, int rounds, double share = 1,
                                  Clock clock = Clock::ThreadCpu);

/// The number of rounds that the command line asks for by "--rounds N", at least 9; 1 with "--quick".
int roundsFrom(int argc, char* argv[], int usual = 15);

/// Sends standard error to the null device: writing the log is part of the work, reading it is not.
void dropLog();

} // namespace VarnelBench
