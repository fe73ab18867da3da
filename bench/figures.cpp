// SPDX-License-Identifier: MIT
#include "figures.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

namespace VarnelBench {

namespace {

std::string number(double value)
{
    char text[32];
    std::ignore = std::snprintf(text, sizeof text, value >= 1000 ? "%.0f" : "%.3g", value);
    return text;
}

/// Median and range.
std::string spread(const std::vector<double>& values, const std::string& unit)
{
    const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
    return number(medianOf(values)) + " (" + number(*lowest) + " to " + number(*highest) + ")" + unit;
}

} // namespace

double nowUs(clockid_t clock)
{
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void printFigure(const std::string& figure, const std::string& unit, const std::vector<Series>& all)
{
    for (const Series& one : all) {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < one.values.size(); ++i) {
            ratios.push_back(one.values[i] / all.front().values[i]);
        }
        const bool isFloor = &one == &all.front();
        std::string target;
        if (one.target > 0) {
            target = number(one.target) + (medianOf(ratios) <= one.target ? ": met" : ": MISSED");
        }
        std::printf("| %s | %s | %s | %s | %s |\n", isFloor ? figure.c_str() : "", one.subject.c_str(),
                    spread(one.values, ' ' + unit).c_str(), isFloor ? "" : spread(ratios, "").c_str(),
                    target.c_str());
    }
    std::ignore = std::fflush(stdout);
}

std::vector<Series> measureInTurn(const std::vector<Work>& all, int rounds, double share, clockid_t clock)
{
    std::vector<Series> result;
    result.reserve(all.size());
    for (const Work& work : all) {
        result.push_back({work.subject, work.target});
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
