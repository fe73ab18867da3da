// SPDX-License-Identifier: MIT
#pragma once

namespace Varnel {

/// Sends every message as one line to standard error, behind the name of the program. Qt itself would prefer
/// the system journal where it was built so and standard error is no terminal. The name is not copied.
void logToStandardError(const char* program);

} // namespace Varnel
