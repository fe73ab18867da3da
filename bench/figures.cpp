// SPDX-License-Identifier: MIT
#include "figures.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

namespace VarnelBench {

namespace {

void printSpread(const Spread& spread)
{
    std::printf("\t%.6g\t%.6g\t%.6g", spread.median, spread.lowest, spread.highest);
}

double nowUs(Clock clock)
{
    timespec time{};
    ::clock_gettime(clock == Clock::Wall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

} // namespace

Spread spreadOf(std::vector<double> values)
{
    if (values.empty()) {
        return {};
    }
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    const double median = values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {median, values.front(), values.back()};
}

void printFigure(const std::string& figure, const std::string& unit, const std::vector<Series>& all,
                 Floor floor)
{
    for (const Series& one : all) {
        std::printf("%s\t%s\t%s\t%zu", figure.c_str(), unit.c_str(), one.subject.c_str(), one.values.size());
        printSpread(spreadOf(one.values));
        if (floor == Floor::None) {
            std::printf("\t\t\t");
        } else {
            std::vector<double> ratios;
            const std::vector<double>& base = all.front().values;
            for (std::size_t i = 0; i < std::min(one.values.size(), base.size()); ++i) {
                ratios.push_back(one.values[i] / base[i]);
            }
            printSpread(spreadOf(ratios));
        }
        if (one.target > 0) {
            std::printf("\t%.6g\n", one.target);
        } else {
            std::printf("\t\n");
        }
    }
    std::ignore = std::fflush(stdout);
}

std::vector<Series> measureInTurn(const std::vector<Work>& all, int rounds, double share, Clock clock)
{
    std::vector<Series> result;
    result.reserve(all.size());
    for (const Work& work : all) {
        result.push_back({work.subject, {}, work.target});
    }
    for (int round = -1; round < rounds; ++round) {
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (all[i].prepare) {
                all[i].prepare();
            }
            const double start = nowUs(clock);
            all[i].run();
            const double time = nowUs(clock) - start;
            if (round >= 0) {
                result[i].values.push_back(time / share);
            }
        }
    }
    return result;
}

int roundsFrom(int argc, char* argv[], int usual)
{
    constexpr int least = 9;
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        if (option == "--quick") {
            return 1;
        }
        if (option == "--rounds" && i + 1 < argc) {
            return std::max(least, static_cast<int>(std::strtol(argv[i + 1], nullptr, 10)));
        }
    }
    return usual;
}

void dropLog()
{
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::setenv("QT_FORCE_STDERR_LOGGING", "1", 1);
    ::dup2(null, STDERR_FILENO);
    ::close(null);
}

} // namespace VarnelBench
