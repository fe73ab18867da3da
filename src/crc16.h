// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

namespace Varnel {

/// Bitwise augmented CRC of `len` octets at `data`: each octet is fed least significant bit first, 16 zero
/// bits follow, and the 16-bit result is bit-reversed; 0 when `data` is null.
///
/// With poly 0x1021 and init 0, which is all that the frames use, this is CRC-16/KERMIT: width 16, poly
/// 0x1021, init 0x0000, reflected input and output, no final XOR, check value 0x2189 over the ASCII digits 1
/// to 9. It is computed from tables, sixteen octets at a time, then eight, then one ("slicing", Kounavis and
/// Berry, 2005). Other parameters are computed bit by bit.
[[nodiscard]] quint16 crc16(quint16 poly, quint16 init, const uchar* data, quint16 len);

} // namespace Varnel
