// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include "figures.h"

namespace VarnelBench {

/// Writes a script that does nothing; returns `path`. Ends this program when that fails.
QString writeScript(const QString& path);

/// Starts the script with `argument` and null streams by posix_spawn and waits for its end; returns its wait
/// status.
int spawnAndWait(const QByteArray& path, const QByteArray& argument);

/// Measures starts of scripts, in wall time: single runs in turn, the median of some of them as one value. A
/// run is short, and whatever else the machine does meanwhile hits one or the other.
std::vector<Series> measureScripts(const std::vector<Work>& works, int rounds);

} // namespace VarnelBench
