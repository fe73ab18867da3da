// SPDX-License-Identifier: MIT
#pragma once

#include <bitset>
#include <chrono>
#include <optional>
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

    /// Number of registers in the status block.
    static constexpr int statusLength = 4;

    /// Puts the status block at `address`: seconds since the last update (65535: none yet, or that many or
    /// more), the number of updates (high word first), and 1 while updates come, else 0. Takes effect with
    /// the next configure(). No update can write there. Updates count as coming while the last one is fresh,
    /// or for 10 s if registers never get stale.
    void setStatusBlock(int address) { statusAddress = address; }

    /// Where the status block is, if there is one.
    [[nodiscard]] std::optional<int> statusBlock() const { return statusAddress; }

    /// Brings the status block up to date, before it is read.
    void refreshStatus(Clock::time_point now);

    /// Replaces all tables. Every register starts as 0 and as never refreshed.
    void configure(const std::vector<RegisterRange>& tables);

    /// Removes all tables.
    void clear() { configure({}); }

    /// Writes all runs, later ones over earlier ones, or none at all: the first run that leaves the tables is
    /// refused as "BadUpdate".
    Outcome<> publish(const RegisterUpdate& update, Clock::time_point now);

    /// True when `count` registers from `address` on all exist.
    [[nodiscard]] bool covers(int address, int count) const { return haveAll(present, address, count); }

    /// True when none of them is stale. If there is a limit, a register that was never refreshed is stale.
    [[nodiscard]] bool isFresh(int address, int count, Clock::time_point now) const;

    /// The word of a register that exists.
    [[nodiscard]] quint16 word(int address) const { return cells.at(static_cast<size_t>(address)).word; }

    /// Number of registers in tables.
    [[nodiscard]] int size() const { return static_cast<int>(inTable.count()); }

private:
    struct Cell
    {
        Clock::time_point refreshed = Clock::time_point::min();
        quint16 word = 0;
    };

    using Registers = std::bitset<addressSpace>;
    static bool haveAll(const Registers& registers, int address, int count);

    Registers inTable;
    Registers present; ///< in a table, or of the status block
    std::vector<Cell> cells = std::vector<Cell>(addressSpace);
    std::chrono::milliseconds staleAfter{0};
    std::optional<int> statusAddress;
    Clock::time_point lastUpdate = Clock::time_point::min();
    quint32 updates = 0;
};

} // namespace Varnel
