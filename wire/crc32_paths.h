// SPDX-License-Identifier: Apache-2.0
// The ways to compute the checksum of wire/crc32.h, each in a source file of its own: for
// crc32.cpp, which takes the first that the processor supports, and for the tests and benchmarks,
// which take each. Safe on any thread.
#pragma once

#include <cstdint>
#include <span>

namespace wire {

struct Crc32Path {
    const char* name;        // of the instruction that it lives on, or "portable"
    bool (*is_supported)();  // by this processor
    uint32_t (*crc32)(std::span<const uint8_t> bytes, uint32_t checksum_so_far);
};

// Those for this kind of processor, the fastest first; the last is supported always.
std::span<const Crc32Path> crc32_paths();

// IEEE 802.3, reflected: bit 31 is the coefficient of x^0, bit 0 that of x^31; x^32 is left out.
inline constexpr uint32_t kCrc32Polynomial = 0xEDB88320;

uint32_t portable_crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far);

#if defined(__x86_64__)
bool has_carry_less_multiplication();
uint32_t carry_less_crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far);
bool has_wide_carry_less_multiplication();
uint32_t wide_carry_less_crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far);
#elif defined(__ARMEL__) || defined(__AARCH64EL__)
bool has_crc32_instructions();
uint32_t instruction_crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far);
#endif

}  // namespace wire
