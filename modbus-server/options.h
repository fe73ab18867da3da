// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QStringList>

#include "service.h"

namespace Varnel {

/// What the command line asks for.
struct Options
{
    /// "system", "session" or a D-Bus address.
    QString bus;
    bool verbose = false;
    ServiceOptions service;
};

/// What main() does with a command line: run with `options`, or print `output` and end with `status`.
struct CommandLine
{
    std::optional<Options> options;
    QString output;
    int status = 0;
};

/// Parses the arguments (the program's name first). Pure: prints nothing.
[[nodiscard]] CommandLine parseCommandLine(const QStringList& arguments);

} // namespace Varnel
