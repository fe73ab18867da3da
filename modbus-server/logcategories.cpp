// SPDX-License-Identifier: MIT
#include "logcategories.h"

namespace Varnel {

Q_LOGGING_CATEGORY(lcServer, "varnel.modbus", QtInfoMsg)
Q_LOGGING_CATEGORY(lcClients, "varnel.modbus.clients", QtWarningMsg)

} // namespace Varnel
