// SPDX-License-Identifier: MIT
#include "registerstore.h"

#include <algorithm>

namespace Varnel {

void RegisterStore::configure(const std::vector<RegisterRange>& tables)
{
    inTable.reset();
    lastUpdate = Clock::time_point::min();
    std::fill(cells.begin(), cells.end(), Cell());
    for (const RegisterRange& table : tables) {
        for (int address = table.address; address < table.address + table.length; ++address) {
            inTable.set(static_cast<size_t>(address));
        }
    }
    present = inTable;
    const int block = statusAddress.value_or(0);
    for (int address = block; statusAddress && address < block + statusLength; ++address) {
        present.set(static_cast<size_t>(address));
    }
}

Outcome<> RegisterStore::publish(const RegisterUpdate& update, Clock::time_point now)
{
    // All checks come before the first write: clients see an update whole or not at all.
    for (const RegisterRun& run : update) {
        if (!haveAll(inTable, run.address, static_cast<int>(run.words.size()))) {
            return Refusal{QStringLiteral("BadUpdate"),
                           QStringLiteral("%1 words from address %2 are not all in a table")
                               .arg(run.words.size())
                               .arg(run.address)};
        }
    }
    for (const RegisterRun& run : update) {
        auto cell = cells.begin() + run.address;
        for (const quint16 value : run.words) {
            *cell++ = Cell{now, value};
        }
    }
    lastUpdate = now;
    ++updates;
    return {};
}

void RegisterStore::refreshStatus(Clock::time_point now)
{
    if (!statusAddress) {
        return;
    }
    constexpr qint64 longestAge = 0xFFFF;
    constexpr std::chrono::seconds usualLimit{10};
    const bool hasCome = lastUpdate != Clock::time_point::min();
    const auto age = hasCome ? now - lastUpdate : Clock::duration::max();
    const qint64 seconds = std::chrono::duration_cast<std::chrono::seconds>(age).count();
    const bool isUp = age < (staleAfter.count() == 0 ? usualLimit : staleAfter);
    const quint16 words[statusLength] = {static_cast<quint16>(std::min(seconds, longestAge)),
                                         static_cast<quint16>(updates >> 16U), static_cast<quint16>(updates),
                                         static_cast<quint16>(isUp ? 1 : 0)};
    auto cell = cells.begin() + *statusAddress;
    for (const quint16 word : words) {
        *cell++ = Cell{now, word};
    }
}

bool RegisterStore::haveAll(const Registers& registers, int address, int count)
{
    if (address < 0 || count < 0 || address + count > addressSpace) {
        return false;
    }
    for (int at = address; at < address + count; ++at) {
        if (!registers.test(static_cast<size_t>(at))) {
            return false;
        }
    }
    return true;
}

bool RegisterStore::isFresh(int address, int count, Clock::time_point now) const
{
    if (staleAfter.count() == 0) {
        return true;
    }
    const auto first = cells.begin() + address;
    return std::all_of(first, first + count, [this, now](const Cell& cell) {
        return cell.refreshed != Clock::time_point::min() && now - cell.refreshed < staleAfter;
    });
}

} // namespace Varnel
