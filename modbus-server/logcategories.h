// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

namespace Varnel {

/// Events for the device's owner: start, stop, refusals. Always on.
Q_DECLARE_LOGGING_CATEGORY(lcServer)
/// Connections of clients and their mistakes. Anybody on the network can cause them, so they are logged only
/// with --verbose.
Q_DECLARE_LOGGING_CATEGORY(lcClients)

} // namespace Varnel
