// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include <QString>

namespace Varnel {

/// Why something was not done: what a person reads, and a word that programs can compare.
struct Refusal
{
    /// Such as the last part of a D-Bus error name; empty where nobody compares.
    QString kind;
    /// One line of plain text, safe to print.
    QString text;

    Refusal() = default;
    explicit Refusal(QString text)
        : text(std::move(text))
    {
    }
    Refusal(QString kind, QString text)
        : kind(std::move(kind))
        , text(std::move(text))
    {
    }
};

/// What a function returns that may fail: its value, or the reason why there is none. Outcome<> is for a
/// function that has nothing to return but its success, which is {}.
template<typename T = std::monostate>
struct [[nodiscard]] Outcome
{
    std::optional<T> value;
    Refusal refusal;

    Outcome()
        : value(T())
    {
        static_assert(std::is_same_v<T, std::monostate>, "an outcome with a value has to be given it");
    }
    // Both implicit, so that a function returns the one or the other as it is.
    Outcome(T good)
        : value(std::move(good))
    {
    }
    Outcome(Refusal bad)
        : refusal(std::move(bad))
    {
    }
    explicit operator bool() const { return value.has_value(); }
};

} // namespace Varnel
