// SPDX-License-Identifier: MIT
#include "fault.h"

namespace VarnelTest {

Faults clockFaults()
{
    return {};
}

} // namespace VarnelTest
