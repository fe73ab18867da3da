// SPDX-License-Identifier: MIT
#pragma once

class QString;

namespace Varnel {

/// Writes one preformatted line to the debug log, converted to Latin-1. A "%" in it (from a URL or a file
/// name) is never taken as a format, and each control character becomes a "?".
void logLine(const QString& line);

/// The same on the critical channel.
void logCriticalLine(const QString& line);

/// logLine() with the time stamp of Helpers::now() and " - " in front.
void logStamped(const QString& line);

/// The same on the critical channel.
void logCriticalStamped(const QString& line);

} // namespace Varnel
