// SPDX-License-Identifier: MIT
#include "registerstore.h"

#include <algorithm>

namespace Varnel {

void RegisterStore::configure(const std::vector<RegisterRange>& tables)
{
    present.reset();
    std::fill(cells.begin(), cells.end(), Cell());
    for (const RegisterRange& table : tables) {
        for (int address = table.address; address < table.address + table.length; ++address) {
            present.set(static_cast<size_t>(address));
        }
    }
}

Outcome<> RegisterStore::publish(const RegisterUpdate& update, Clock::time_point now)
{
    // All checks before the first write: an update is seen whole or not at all.
    for (const RegisterRun& run : update) {
        if (!covers(run.address, static_cast<int>(run.words.size()))) {
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
    return {};
}

bool RegisterStore::covers(int address, int count) const
{
    if (address < 0 || count < 0 || address + count > addressSpace) {
        return false;
    }
    for (int at = address; at < address + count; ++at) {
        if (!present.test(static_cast<size_t>(at))) {
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
