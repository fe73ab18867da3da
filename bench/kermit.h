// SPDX-License-Identifier: MIT
#pragma once

namespace VarnelBench {

/// CRC-16/KERMIT (polynomial 0x1021 reflected, initial value 0) in two usual ways, as floors.
/// One look-up in a table of 256 words for each octet.
unsigned kermitByTable(const unsigned char* data, int length);
/// Eight look-ups in as many tables for each eight octets.
unsigned kermitBySlices(const unsigned char* data, int length);

} // namespace VarnelBench
