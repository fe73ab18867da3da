// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

namespace Varnel {

/// What the device's owner has to know: start, stop, refusals. Always on.
Q_DECLARE_LOGGING_CATEGORY(lcServer)
/// Comings and goings of clients and what they do wrong. Anybody on the network can cause it, so it is silent
/// unless --verbose asks for it.
Q_DECLARE_LOGGING_CATEGORY(lcClients)

/// Sends every message as one line to standard error, behind the program's name. Qt itself would prefer the
/// system journal where it was built so and standard error is no terminal.
void logToStandardError();

} // namespace Varnel
