// SPDX-License-Identifier: Apache-2.0
// By tables: four words at a time, each byte of them with a table of its own ("slicing by 16").
#include <array>
#include <cstddef>

#include "wire/crc32_paths.h"

namespace wire {
namespace {

constexpr size_t kWord = 4;
constexpr size_t kBlock = 4 * kWord;

using Tables = std::array<std::array<uint32_t, 256>, kBlock>;

// tables[0] advances the checksum by one byte; tables[n] by that byte followed by n zero bytes. So
// the bytes of a block can be looked up independently of each other.
constexpr Tables make_tables() {
    Tables tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kCrc32Polynomial : 0);
        }
        tables[0][byte] = remainder;
    }
    for (size_t zeros = 1; zeros < kBlock; ++zeros) {
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t previous = tables[zeros - 1][byte];
            tables[zeros][byte] = (previous >> 8) ^ tables[0][previous & 0xFF];
        }
    }
    return tables;
}

constexpr Tables kTables = make_tables();

// Little-endian whatever the processor; compilers make one load of it where they can.
inline uint32_t word_at(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

// The remainder after `word` and then as many zero bytes.
inline uint32_t advance(uint32_t word, size_t zeros) {
    return kTables[zeros + 3][word & 0xFF] ^ kTables[zeros + 2][(word >> 8) & 0xFF] ^
           kTables[zeros + 1][(word >> 16) & 0xFF] ^ kTables[zeros][word >> 24];
}

}  // namespace

uint32_t portable_crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far) {
    uint32_t remainder = ~checksum_so_far;
    const uint8_t* next = bytes.data();
    size_t left = bytes.size();
    for (; left >= kBlock; left -= kBlock, next += kBlock) {
        // Waits for nothing that the block before yields.
        const uint32_t later_words = advance(word_at(next + 3 * kWord), 0) ^
                                     advance(word_at(next + 2 * kWord), kWord) ^
                                     advance(word_at(next + kWord), 2 * kWord);
        remainder = advance(word_at(next) ^ remainder, 3 * kWord) ^ later_words;
    }
    for (; left >= kWord; left -= kWord, next += kWord) {
        remainder = advance(word_at(next) ^ remainder, 0);
    }
    for (; left > 0; --left, ++next) {
        remainder = (remainder >> 8) ^ kTables[0][(remainder ^ *next) & 0xFF];
    }
    return ~remainder;
}

}  // namespace wire
