// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace Varnel {

/// One environment variable that spares the panel work it has no use for.
struct EngineVariable
{
    const char* name;
    const char* value;
};

/// The variables that prepareEngine() sets, in order. docs/performance.md says what each saves.
const std::vector<EngineVariable>& engineVariables();

/// Tells Qt, the engine and the libraries below them what to leave out. A variable that the environment
/// already holds is left alone, so a service file can bring each of them back. To be called first in main(),
/// before anything of Qt has run.
void prepareEngine();

} // namespace Varnel
