// SPDX-License-Identifier: MIT
#pragma once

namespace Varnel {

/// Where the server on the system bus takes updates from mbserverupdate.sh. The unit makes the directory.
inline constexpr char updateSocketPath[] = "/run/varnel-modbus-server/updates";

} // namespace Varnel
