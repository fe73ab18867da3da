// SPDX-License-Identifier: MIT
#include "kermit.h"

#include <array>
#include <cstdint>

namespace VarnelBench {

namespace {

using Table = std::array<std::uint16_t, 256>;

constexpr std::array<Table, 8> makeTables()
{
    std::array<Table, 8> made{};
    for (unsigned octet = 0; octet < 256; ++octet) {
        unsigned crc = octet;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1U) != 0 ? (crc >> 1U) ^ 0x8408U : crc >> 1U;
        }
        made[0][octet] = static_cast<std::uint16_t>(crc);
    }
    for (unsigned octet = 0; octet < 256; ++octet) {
        for (unsigned slice = 1; slice < 8; ++slice) {
            const unsigned before = made[slice - 1][octet];
            made[slice][octet] = static_cast<std::uint16_t>((before >> 8U) ^ made[0][before & 0xFFU]);
        }
    }
    return made;
}

constexpr std::array<Table, 8> tables = makeTables();

} // namespace

unsigned kermitByTable(const unsigned char* data, int length)
{
    unsigned crc = 0;
    for (int i = 0; i < length; ++i) {
        crc = (crc >> 8U) ^ tables[0][(crc ^ data[i]) & 0xFFU];
    }
    return crc;
}

unsigned kermitBySlices(const unsigned char* data, int length)
{
    unsigned crc = 0;
    for (; length >= 8; data += 8, length -= 8) {
        crc = tables[7][(crc ^ data[0]) & 0xFFU] ^ tables[6][((crc >> 8U) ^ data[1]) & 0xFFU] ^
              tables[5][data[2]] ^ tables[4][data[3]] ^ tables[3][data[4]] ^ tables[2][data[5]] ^
              tables[1][data[6]] ^ tables[0][data[7]];
    }
    for (; length > 0; ++data, --length) {
        crc = (crc >> 8U) ^ tables[0][(crc ^ *data) & 0xFFU];
    }
    return crc;
}

} // namespace VarnelBench
