// SPDX-License-Identifier: MIT
#pragma once

namespace Varnel {

/// Gives the engine's caches, and the toolkit's of drawn icons, limits that fit a panel with one page, for
/// the whole process. Call it once, before the first page.
void limitEngineCaches();

/// Lets go of all that they keep without showing it. What is on the screen stays.
void clearEngineCaches();

} // namespace Varnel
