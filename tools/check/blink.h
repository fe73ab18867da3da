// SPDX-License-Identifier: MIT
#pragma once

#include <QTextStream>

#include "panelfiles.h"

namespace VarnelCheck {

/// Lights each lamp and sounds the buzzer in turn, and asks whether it did; leaves everything off. Writes to
/// the lines as the panel does, so the panel should be stopped. Returns false if an answer was not "y" or a
/// line cannot be written.
bool blinkOutputs(const PanelFiles& panel, QTextStream& in, QTextStream& out);

} // namespace VarnelCheck
