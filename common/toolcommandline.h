// SPDX-License-Identifier: MIT
#pragma once

#include <QCommandLineParser>
#include <QString>

namespace Varnel {

/// Adds --help and --version, reads the program's command line and, if one of the two is there, prints its
/// text and ends the program. Returns what is wrong with the command line; empty when it is fine.
[[nodiscard]] QString readCommandLine(QCommandLineParser& parser);

} // namespace Varnel
