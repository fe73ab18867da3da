// SPDX-License-Identifier: MIT
#pragma once

#include "frameencoder.h"

#include <QString>

#include <vector>

namespace Simulator {

/// One way to spoil a frame.
struct FrameFault
{
    const char* name;
    const char* meaning;                    ///< for --help
    QByteArray (*build)(FrameParts& parts); ///< may change the parts of the correct frame on the way
};

/// All known ways, in the order in which --help lists them.
const std::vector<FrameFault>& frameFaults();

/// The fault of this name, or null.
const FrameFault* findFrameFault(const QString& name);

} // namespace Simulator
