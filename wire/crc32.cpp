// SPDX-License-Identifier: Apache-2.0
#include "wire/crc32.h"

#include <array>
#include <cstddef>

namespace wire {
namespace {

constexpr uint32_t kPolynomial = 0xEDB88320;
constexpr size_t kSlices = 8;

using Table = std::array<std::array<uint32_t, 256>, kSlices>;

// table[0] advances the checksum by one byte; table[k] by that byte followed by k zero bytes, so
// that eight bytes can be folded in with eight independent look-ups.
constexpr Table make_table() {
    Table table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kPolynomial : 0);
        }
        table[0][byte] = remainder;
    }
    for (size_t slice = 1; slice < kSlices; ++slice) {
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t previous = table[slice - 1][byte];
            table[slice][byte] = (previous >> 8) ^ table[0][previous & 0xFF];
        }
    }
    return table;
}

constexpr Table kTable = make_table();

}  // namespace

uint32_t crc32(std::span<const uint8_t> bytes) {
    return crc32(bytes, 0);
}

uint32_t crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far) {
    uint32_t remainder = ~checksum_so_far;
    const uint8_t* next = bytes.data();
    size_t left = bytes.size();
    for (; left >= kSlices; left -= kSlices, next += kSlices) {
        remainder = kTable[7][next[0] ^ (remainder & 0xFF)] ^
                    kTable[6][next[1] ^ ((remainder >> 8) & 0xFF)] ^
                    kTable[5][next[2] ^ ((remainder >> 16) & 0xFF)] ^
                    kTable[4][next[3] ^ (remainder >> 24)] ^ kTable[3][next[4]] ^
                    kTable[2][next[5]] ^ kTable[1][next[6]] ^ kTable[0][next[7]];
    }
    for (; left > 0; --left, ++next) {
        remainder = (remainder >> 8) ^ kTable[0][(remainder ^ *next) & 0xFF];
    }
    return ~remainder;
}

}  // namespace wire
