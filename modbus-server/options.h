// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include "invocation.h"
#include "service.h"

namespace Varnel {

/// The options of the command line.
struct ServerOptions
{
    /// "system", "session" or a D-Bus address.
    QString bus;
    bool verbose = false;
    ServiceOptions service;
};

/// Parses the arguments (the program's name first). Pure: prints nothing.
[[nodiscard]] Invocation<ServerOptions> parseCommandLine(const QStringList& arguments);

} // namespace Varnel
