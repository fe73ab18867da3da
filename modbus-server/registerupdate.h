// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include <QByteArray>

#include "outcome.h"

namespace Varnel {

/// Consecutive register words, to be written from `address` on.
struct RegisterRun
{
    quint16 address = 0;
    /// address + size stays within the address space.
    std::vector<quint16> words;
};

inline bool operator==(const RegisterRun& a, const RegisterRun& b)
{
    return a.address == b.address && a.words == b.words;
}

/// All runs of one update, in the order in which they are applied.
using RegisterUpdate = std::vector<RegisterRun>;

/// Limit, in bytes, for an update command: eight times the longest argument of a script.
constexpr int maxUpdateSize = 1024 * 1024;

/// Parses an update command. Pure: logs nothing, accepts any bytes. An empty "data" is a valid update of
/// nothing. Refuses as "BadUpdate" (with the member that is wrong) or "UnknownCommand".
[[nodiscard]] Outcome<RegisterUpdate> parseUpdate(const QByteArray& text);

} // namespace Varnel
