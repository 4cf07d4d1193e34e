// SPDX-License-Identifier: Apache-2.0
// By the CRC32 instructions, which ARMv8 processors have in their 32-bit state too. They take the
// first byte low: where words are big-endian the portable way does.
#if defined(__ARMEL__) || defined(__AARCH64EL__)

#include <asm/hwcap.h>
#include <sys/auxv.h>

#include <bit>
#include <cstddef>
#include <utility>

#include "wire/crc32_paths.h"

namespace wire {
namespace {

using Word = uint64_t;

// In assembly, because compilers offer the intrinsics only where all code may use the instructions.
inline uint32_t add_byte(uint32_t remainder, uint32_t byte) {
#if defined(__aarch64__)
    asm(".arch_extension crc\n\t"
        "crc32b %w0, %w0, %w1"
        : "+r"(remainder)
        : "r"(byte));
#else
    asm(".arch armv8-a\n\t"
        ".arch_extension crc\n\t"
        "crc32b %0, %0, %1"
        : "+r"(remainder)
        : "r"(byte));
#endif
    return remainder;
}

inline uint32_t add_word(uint32_t remainder, Word word) {
#if defined(__aarch64__)
    asm(".arch_extension crc\n\t"
        "crc32x %w0, %w0, %x1"
        : "+r"(remainder)
        : "r"(word));
#else
    // A pair of registers, which one instruction loads: the low half and the high half.
    asm(".arch armv8-a\n\t"
        ".arch_extension crc\n\t"
        "crc32w %0, %0, %Q1\n\t"
        "crc32w %0, %0, %R1"
        : "+&r"(remainder)
        : "r"(word));
#endif
    return remainder;
}

// Where words are aligned, one instruction loads several.
inline Word aligned_word_at(const uint8_t* bytes) {
    Word word;
    __builtin_memcpy(&word, __builtin_assume_aligned(bytes, sizeof(Word)), sizeof(Word));
    return word;
}

// One after the other, without a loop at any level of optimisation.
template <size_t... words>
inline uint32_t add_words(uint32_t remainder, const uint8_t* bytes, std::index_sequence<words...>) {
    ((remainder = add_word(remainder, aligned_word_at(bytes + words * sizeof(Word)))), ...);
    return remainder;
}

}  // namespace

bool has_crc32_instructions() {
#if defined(__aarch64__)
    return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
#else
    return (getauxval(AT_HWCAP2) & HWCAP2_CRC32) != 0;
#endif
}

uint32_t instruction_crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far) {
    constexpr size_t kBlockWords = 8;
    constexpr size_t kBlock = kBlockWords * sizeof(Word);
    uint32_t remainder = ~checksum_so_far;
    const uint8_t* next = bytes.data();
    size_t left = bytes.size();
    for (; left > 0 && reinterpret_cast<uintptr_t>(next) % sizeof(Word) != 0; --left, ++next) {
        remainder = add_byte(remainder, *next);
    }
    for (; left >= kBlock; left -= kBlock, next += kBlock) {
        remainder = add_words(remainder, next, std::make_index_sequence<kBlockWords>());
    }
    for (; left >= sizeof(Word); left -= sizeof(Word), next += sizeof(Word)) {
        remainder = add_word(remainder, aligned_word_at(next));
    }
    for (; left > 0; --left, ++next) {
        remainder = add_byte(remainder, *next);
    }
    return ~remainder;
}

}  // namespace wire

#endif
