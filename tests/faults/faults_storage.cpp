// SPDX-License-Identifier: MIT
#include "fault.h"

namespace VarnelTest {

Faults storageFaults()
{
    return {};
}

} // namespace VarnelTest
