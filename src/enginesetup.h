// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace Varnel {

/// One environment variable that switches off work which the panel does not need.
struct EngineVariable
{
    const char* name;
    const char* value;
};

/// The variables that prepareEngine() sets, in order. docs/performance.md says what each saves.
const std::vector<EngineVariable>& engineVariables();

/// Switches off the parts of Qt, the engine and their libraries that the panel does not need. A variable that
/// the environment already has is left alone, so a unit file can override each. Call it first in main(),
/// before any code of Qt.
void prepareEngine();

} // namespace Varnel
