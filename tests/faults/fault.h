// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <type_traits>
#include <vector>

#include "faultbench.h"

/// Something that is done or awaited. It fails when its function returns false; a function that returns
/// nothing succeeds, as no function does.
class Step
{
public:
    Step() = default;

    template<typename Function>
    Step(Function function) // NOLINT(google-explicit-constructor)
        : run([function](FaultBench& bench) {
            if constexpr (std::is_void_v<std::invoke_result_t<Function, FaultBench&>>) {
                std::invoke(function, bench);
                return true;
            } else {
                return std::invoke(function, bench);
            }
        })
    {
    }

    bool operator()(FaultBench& bench) const { return !run || run(bench); }

private:
    std::function<bool(FaultBench&)> run;
};

/// One thing that may go wrong around the panel, and what it may cost.
struct Fault
{
    /// The fault's name in the campaign.
    const char* name;
    /// The effect for the user and the loss, in words that observe() and the measurement check.
    const char* sees;
    const char* lost;
    /// The log's line, as a regular expression; empty when the panel has nothing to say.
    const char* line;
    /// Puts it in.
    Step inject;
    /// Waits until the user sees it, and for all else that is to be seen while it lasts.
    Step observe;
    /// Takes it away: the recovery is counted from here.
    Step end;
    /// Before everything starts.
    Step prepare = {};
    /// The action that the panel needs to recover, if any; the recovery time then starts with it.
    Step push = {};
    /// Whether a PLC can read at all.
    bool served = true;
    /// Time limit for a recovery, and for an end by SIGTERM during the fault.
    std::chrono::seconds recoveryLimit{20};
    std::chrono::seconds endLimit{3};
};

using Faults = std::vector<Fault>;

Faults controllerFaults();
Faults serverFaults();
Faults networkFaults();
Faults scriptFaults();
Faults storageFaults();
Faults clockFaults();
