// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

class QWidget;

namespace Varnel {

/// True while a USB drive is mounted: its directory exists, and so does the marker file that the system keeps
/// while the drive is plugged in. The directory also exists without a drive.
[[nodiscard]] bool isUsbDriveMounted();

/// Lets the user pick a file of the USB drive for an upload, in a modal dialog over `parent`. Returns its
/// absolute path, or an empty string when the user cancels, picks nothing or has no drive plugged in; a popup
/// says so in the last two cases. Runs nested event loops. The drive stays read-only.
[[nodiscard]] QString chooseUploadFile(QWidget* parent);

} // namespace Varnel
