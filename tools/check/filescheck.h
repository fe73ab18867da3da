// SPDX-License-Identifier: MIT
#pragma once

#include "finding.h"
#include "panelfiles.h"

namespace VarnelCheck {

/// The pictures of the panel's own pages: there, readable, 800 x 480, in each language.
Findings checkPictures(const PanelFiles& panel);

/// The device scripts: there, executable, changed by root alone, and from which package.
Findings checkScripts(const PanelFiles& panel);

/// The mapping file, by the map checker.
Findings checkMapping(const PanelFiles& panel);

/// Mount point and marker file of the USB drive.
Findings checkUsbDrive(const PanelFiles& panel);

/// The installed version of a package; empty if it is not installed.
QString packageVersion(const PanelFiles& panel, const QByteArray& package);

/// Clock, free space, the engine's storage, and the state of the controller's configuration.
Findings checkSystem(const PanelFiles& panel);

} // namespace VarnelCheck
