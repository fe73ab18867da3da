// SPDX-License-Identifier: MIT
#pragma once

#include <bitset>
#include <chrono>
#include <vector>

#include "jsoncommand.h"
#include "registerupdate.h"
#include "serverconfig.h"

namespace Varnel {

/// The registers that clients read: one flat address space in which only the configured tables exist. Tables
/// may overlap; the register is then the same one. Time is passed in, so ages can be tested without waiting.
class RegisterStore
{
public:
    using Clock = std::chrono::steady_clock;

    /// Age from which a register is stale; 0 (the default) means never.
    void setStaleAfter(std::chrono::milliseconds age) { staleAfter = age; }

    /// Replaces all tables. Every register starts as 0 and as never refreshed.
    void configure(const std::vector<RegisterRange>& tables);

    /// Removes all tables.
    void clear() { configure({}); }

    /// Writes all runs, later ones over earlier ones, or none at all: the first run that leaves the tables is
    /// refused as "BadUpdate".
    Outcome<> publish(const RegisterUpdate& update, Clock::time_point now);

    /// True when `count` registers from `address` on all exist.
    [[nodiscard]] bool covers(int address, int count) const;

    /// True when none of them is stale. A register that was never refreshed is stale as soon as ages count.
    [[nodiscard]] bool isFresh(int address, int count, Clock::time_point now) const;

    /// The word of a register that exists.
    [[nodiscard]] quint16 word(int address) const { return cells.at(static_cast<size_t>(address)).word; }

    /// Number of registers that exist.
    [[nodiscard]] int size() const { return static_cast<int>(present.count()); }

private:
    struct Cell
    {
        Clock::time_point refreshed = Clock::time_point::min();
        quint16 word = 0;
    };

    std::bitset<addressSpace> present;
    std::vector<Cell> cells = std::vector<Cell>(addressSpace);
    std::chrono::milliseconds staleAfter{0};
};

} // namespace Varnel
