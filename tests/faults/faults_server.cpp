// SPDX-License-Identifier: MIT
#include "fault.h"

namespace VarnelTest {

Faults serverFaults()
{
    return {};
}

} // namespace VarnelTest
