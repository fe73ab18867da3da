// SPDX-License-Identifier: MIT
#pragma once

#include "finding.h"
#include "panelfiles.h"

namespace VarnelCheck {

/// LEDs and buzzer: the lines of the settings against the GPIO chips of the kernel.
Findings checkOutputs(const PanelFiles& panel);

/// Frame buffer, display blanking and backlight.
Findings checkDisplay(const PanelFiles& panel);

/// The interface and address on which frames arrive, and whether another program has the port.
Findings checkNetwork(const PanelFiles& panel);

} // namespace VarnelCheck
