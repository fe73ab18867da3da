// SPDX-License-Identifier: MIT
// The checksum of a frame, against the usual ways to compute a CRC-16/KERMIT. Options: --rounds N, --quick.
#include <cstdio>
#include <cstdlib>
#include <tuple>
#include <vector>

#include "crc16.h"
#include "figures.h"
#include "kermit.h"

using namespace VarnelBench;

namespace {

constexpr int repetitions = 2000;

/// Lets the compiler neither drop the computation nor do it once for all repetitions.
template<typename Checksum>
std::function<void()> repeated(const std::vector<unsigned char>& octets, Checksum checksum)
{
    return [&octets, checksum] {
        unsigned sum = 0;
        for (int i = 0; i < repetitions; ++i) {
            const unsigned char* data = octets.data();
            asm volatile("" : "+r"(data) : : "memory");
            sum += checksum(data, static_cast<int>(octets.size()));
        }
        asm volatile("" : : "r"(sum));
    };
}

std::vector<unsigned char> noise(int size)
{
    std::vector<unsigned char> octets(static_cast<std::size_t>(size));
    unsigned state = 1;
    for (unsigned char& octet : octets) {
        state = state * 1103515245U + 12345U;
        octet = static_cast<unsigned char>(state >> 16U);
    }
    return octets;
}

unsigned panelChecksum(const unsigned char* data, int length)
{
    return Varnel::crc16(0x1021, 0, data, static_cast<quint16>(length));
}

void benchSize(int size, int rounds)
{
    const std::vector<unsigned char> octets = noise(size);
    const unsigned checksum = kermitByBits(octets.data(), size);
    for (auto* const other : {kermitByTable, kermitBySlices, panelChecksum}) {
        if (other(octets.data(), size) != checksum) {
            std::ignore = std::fputs("the checksums differ\n", stderr);
            std::exit(1);
        }
    }
    printFigure("CRC-16/KERMIT over " + std::to_string(size) + " octets", "us",
                measureInTurn({{"slicing by 8", repeated(octets, kermitBySlices)},
                               {"table of 256", repeated(octets, kermitByTable)},
                               {"bit by bit", repeated(octets, kermitByBits)},
                               {"panel", repeated(octets, panelChecksum), 1.0}},
                              rounds, repetitions));
}

} // namespace

int main(int argc, char* argv[])
{
    const int rounds = roundsFrom(argc, argv);
    for (const int size : {60, 700, 1400}) {
        benchSize(size, rounds);
    }
    return 0;
}
