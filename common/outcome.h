// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include <QString>

namespace Varnel {

/// Why something was not done: a text for people, and a word that programs can compare.
struct Refusal
{
    /// Such as the last part of a D-Bus error name; empty where no program compares it.
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

/// The result of a function that may fail: its value, or the reason why there is none. Outcome<> is for a
/// function without a value; {} is its success.
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
    // Both are implicit, so that a function can return either directly.
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
