// SPDX-License-Identifier: MIT
#include "crc16.h"

#include <array>
#include <utility>

namespace Varnel {

namespace {

constexpr quint16 kermitPoly = 0x1021;
constexpr quint16 kermitPolyReflected = 0x8408;
/// Octets in a block; each of them has a table of its own.
constexpr int slices = 16;

using Tables = std::array<std::array<quint16, 256>, slices>;

/// tables[0] is the usual octet-wise table; tables[k] is what an octet contributes k octets later.
constexpr Tables makeTables()
{
    Tables made{};
    for (unsigned octet = 0; octet < 256; ++octet) {
        unsigned crc = octet;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? kermitPolyReflected : 0U);
        }
        made[0][octet] = static_cast<quint16>(crc);
    }
    for (unsigned octet = 0; octet < 256; ++octet) {
        for (int k = 1; k < slices; ++k) {
            const quint16 previous = made[k - 1][octet];
            made[k][octet] = static_cast<quint16>((previous >> 8U) ^ made[0][previous & 0xFFU]);
        }
    }
    return made;
}

constexpr Tables tables = makeTables();

/// The contribution of the octets after the first two of a block. It does not depend on the remainder, so the
/// processor can compute it while it still waits for the remainder.
template<std::size_t size, std::size_t... At>
constexpr quint32 foldRest(const uchar* data, std::index_sequence<At...> /*positions*/)
{
    return (quint32(tables[size - 3 - At][data[At + 2]]) ^ ...);
}

/// The remainder after a block of `size` octets.
template<std::size_t size>
constexpr quint32 foldBlock(quint32 crc, const uchar* data)
{
    return tables[size - 1][(crc ^ data[0]) & 0xFFU] ^ tables[size - 2][(crc >> 8U) ^ data[1]] ^
           foldRest<size>(data, std::make_index_sequence<size - 2>());
}

quint16 kermit(const uchar* data, int len)
{
    quint32 crc = 0;
    for (; len >= slices; data += slices, len -= slices) {
        crc = foldBlock<slices>(crc, data);
    }
    if (constexpr int half = slices / 2; len >= half) {
        crc = foldBlock<half>(crc, data);
        data += half;
        len -= half;
    }
    for (; len > 0; ++data, --len) {
        crc = (crc >> 8U) ^ tables[0][(crc ^ *data) & 0xFFU];
    }
    return static_cast<quint16>(crc);
}

quint16 shiftIn(quint16 crc, bool bit, quint16 poly)
{
    const bool carry = (crc & 0x8000U) != 0;
    const auto shifted = static_cast<quint16>((unsigned(crc) << 1U) | (bit ? 1U : 0U));
    return carry ? quint16(shifted ^ poly) : shifted;
}

quint16 reversed(quint16 value)
{
    unsigned result = 0;
    for (int bit = 0; bit < 16; ++bit) {
        result = (result << 1U) | ((unsigned(value) >> unsigned(bit)) & 1U);
    }
    return static_cast<quint16>(result);
}

} // namespace

quint16 crc16(quint16 poly, quint16 init, const uchar* data, quint16 len)
{
    if (data == nullptr) {
        return 0;
    }
    if (poly == kermitPoly && init == 0) {
        return kermit(data, len);
    }
    quint16 crc = init;
    for (int i = 0; i < len; ++i) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            crc = shiftIn(crc, ((unsigned(data[i]) >> bit) & 1U) != 0, poly);
        }
    }
    for (int bit = 0; bit < 16; ++bit) {
        crc = shiftIn(crc, false, poly);
    }
    return reversed(crc);
}

} // namespace Varnel
