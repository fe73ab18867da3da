// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <vector>

#include "faultbench.h"

/// One thing that may go wrong around the panel, and what it may cost.
struct Fault
{
    using Step = std::function<bool(FaultBench&)>;

    /// What the campaign calls it.
    const char* name;
    /// What the user sees and what is lost, in words that observe() and the measurement hold true.
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
    /// What has to be done where the panel waits for a push; the recovery is counted from there, then.
    Step push = {};
    /// Whether a PLC can read at all.
    bool served = true;
    /// How long a recovery, and an end by SIGTERM while it lasts, may take.
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
