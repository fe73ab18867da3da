// SPDX-License-Identifier: MIT
#include "fault.h"

namespace VarnelTest {

Faults networkFaults()
{
    return {};
}

} // namespace VarnelTest
