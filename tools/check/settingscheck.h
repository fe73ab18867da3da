// SPDX-License-Identifier: MIT
#pragma once

#include "finding.h"
#include "panelfiles.h"

namespace VarnelCheck {

/// Finds keys that the panel does not know or reads differently from what was probably meant, each with its
/// line.
Findings checkSettings(const PanelFiles& panel);

/// The known name that is nearest to `name` by edit distance (Levenshtein); empty if none is near.
QString nearestName(const QString& name, const QStringList& known);

} // namespace VarnelCheck
