// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include "checkrun.h"

// Where frames come from. Each reads until its end, and returns an empty text or why it had to stop.

/// A capture file. Shows its progress on a terminal.
[[nodiscard]] QString readCaptureFile(const QString& path, CheckRun* run);

/// Hexadecimal text; "-" is standard input.
[[nodiscard]] QString readHexText(const QString& path, CheckRun* run);

/// A network interface, until SIGINT or SIGTERM.
[[nodiscard]] QString readInterface(const QString& name, quint16 port, CheckRun* run);

/// The datagrams to a UDP port of this machine, until SIGINT or SIGTERM.
[[nodiscard]] QString readPort(quint16 port, CheckRun* run);
