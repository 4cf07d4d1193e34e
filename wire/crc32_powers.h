// SPDX-License-Identifier: Apache-2.0
// The constants of folding by carry-less multiplication, at compile time: see crc32_x86.cpp.
#pragma once

#include <cstdint>

#include "wire/crc32_paths.h"

namespace wire {

// x^exponent mod P, reflected.
constexpr uint32_t power_of_x(int exponent) {
    uint32_t remainder = 0x80000000;  // x^0
    for (; exponent > 0; --exponent) {
        remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kCrc32Polynomial : 0);
    }
    return remainder;
}

// The same as a number of 64 bits.
constexpr int64_t power_of_x_64(int exponent) {
    return static_cast<int64_t>(uint64_t{power_of_x(exponent)} << 32);
}

// What moves 16 bytes on by so many bits: the factors of the first and of the last 8 of them.
constexpr int64_t first_factor(int bits) {
    return power_of_x_64(bits + 64 - 1);
}
constexpr int64_t last_factor(int bits) {
    return power_of_x_64(bits - 1);
}

}  // namespace wire
