// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QString>

namespace Varnel {

/// Why a command was not carried out: what a script's user reads, and a word that programs can compare.
struct Refusal
{
    /// Last part of the D-Bus error name: "BadInit", "BadUpdate", "UnknownCommand", "NotStarted" or
    /// "NoInterface".
    QString kind;
    /// One line of plain text, safe to print.
    QString text;
};

/// What a parser returns: either the value or the reason why there is none.
template<typename T>
struct Parsed
{
    std::optional<T> value;
    Refusal refusal;

    // Both implicit, so that a parser returns the one or the other as it is.
    Parsed(T good)
        : value(std::move(good))
    {
    }
    Parsed(Refusal bad)
        : refusal(std::move(bad))
    {
    }
    explicit operator bool() const { return value.has_value(); }
};

} // namespace Varnel
