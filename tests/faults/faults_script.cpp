// SPDX-License-Identifier: MIT
#include "fault.h"

namespace VarnelTest {

Faults scriptFaults()
{
    return {};
}

} // namespace VarnelTest
