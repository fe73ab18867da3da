// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <optional>
#include <tuple>

#include <QString>

namespace Varnel {

/// The result of reading a command line: main() runs with `options`, or prints `output` and ends with
/// `status`.
template<typename Options>
struct Invocation
{
    std::optional<Options> options;
    QString output;
    int status = 0;

    /// Prints `output`, on standard error if it is an error message, and returns `status` for main() to
    /// return.
    [[nodiscard]] int end() const
    {
        std::ignore = std::fputs(qPrintable(output), status == 0 ? stdout : stderr);
        return status;
    }
};

} // namespace Varnel
