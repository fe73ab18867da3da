// SPDX-License-Identifier: MIT
#include "watchdog.h"

#include <algorithm>
#include <string_view>
#include <tuple>

#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace Varnel {

namespace {

using std::chrono::microseconds;

/// A lost message costs at most a restart by the service manager, so a failure is ignored.
void tell(const char* state)
{
    std::ignore = ::sd_notify(0, state);
}

/// The longest time between two heartbeats, 0 when the service manager expects none.
microseconds watchdogInterval()
{
    uint64_t interval = 0;
    return ::sd_watchdog_enabled(0, &interval) > 0 ? microseconds(interval) : microseconds(0);
}

void setWatchdogInterval(microseconds interval)
{
    std::ignore =
        ::sd_notifyf(0, "WATCHDOG_USEC=%llu\nWATCHDOG=1", static_cast<unsigned long long>(interval.count()));
}

/// True for "NAME=value" with a name of sd_notify(3) or sd_watchdog_enabled(3).
bool isForPanelAlone(std::string_view variable)
{
    const std::string_view name = variable.substr(0, variable.find('='));
    return name == "NOTIFY_SOCKET" || name == "WATCHDOG_PID" || name == "WATCHDOG_USEC";
}

} // namespace

Watchdog::Watchdog(QObject* parent)
    : QObject(parent)
{
    const microseconds interval = watchdogInterval();
    if (interval.count() == 0) {
        return;
    }
    connect(&timer, &QTimer::timeout, this, &feedWatchdog);
    // Half of it, as sd_watchdog_enabled(3) recommends: one turn of the loop may be late.
    timer.start(std::max(std::chrono::duration_cast<std::chrono::milliseconds>(interval / 2),
                         std::chrono::milliseconds(1)));
}

void Watchdog::announceReady()
{
    tell("READY=1");
}

void Watchdog::announceEnd()
{
    tell("STOPPING=1");
}

void feedWatchdog()
{
    if (watchdogInterval().count() > 0) {
        tell("WATCHDOG=1");
    }
}

WatchdogPatience::WatchdogPatience(microseconds limit)
    : usual(watchdogInterval())
{
    if (usual.count() > 0) {
        setWatchdogInterval(std::max(usual, limit));
    }
}

WatchdogPatience::~WatchdogPatience()
{
    if (usual.count() > 0) {
        setWatchdogInterval(usual);
    }
}

std::vector<char*> environmentForPrograms()
{
    std::vector<char*> variables;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        if (!isForPanelAlone(*variable)) {
            variables.push_back(*variable);
        }
    }
    variables.push_back(nullptr);
    return variables;
}

} // namespace Varnel
