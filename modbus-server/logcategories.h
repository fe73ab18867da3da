// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

namespace Varnel {

/// What the device's owner has to know: start, stop, refusals. Always on.
Q_DECLARE_LOGGING_CATEGORY(lcServer)
/// Comings and goings of clients and what they do wrong. Anybody on the network can cause it, so it is silent
/// unless --verbose asks for it.
Q_DECLARE_LOGGING_CATEGORY(lcClients)

} // namespace Varnel
