// SPDX-License-Identifier: MIT
#pragma once

namespace Varnel {

/// Limits the engine's caches and the toolkit's icon cache, for the whole process, to what a panel with one
/// page needs. Call it once, before the first page.
void limitEngineCaches();

/// Empties these caches. The screen does not change.
void clearEngineCaches();

} // namespace Varnel
