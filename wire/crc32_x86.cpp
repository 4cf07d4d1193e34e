// SPDX-License-Identifier: Apache-2.0
// By carry-less multiplication (PCLMULQDQ). A message is a polynomial over GF(2), its checksum the
// remainder of dividing it by P, the polynomial of degree 32. Multiplying the 16 bytes read so far
// by a power of x modulo P moves them onto bytes further on without changing the remainder, so a
// message of any length is folded into 16 bytes, and only these are divided.
//
// Everything is reflected: in an n-bit number bit i is the coefficient of x^(n-1-i), as the bits
// come on the wire. The product of two reflected 64-bit numbers has 127 bits, not 128: read as a
// reflected 128-bit number it is the product times x, which the powers below make up for.
#if defined(__x86_64__)

#include <cpuid.h>
#include <immintrin.h>

#include <cstddef>

#include "wire/crc32_paths.h"
#include "wire/crc32_powers.h"

#define CARRY_LESS_TARGET [[gnu::target("pclmul,sse4.1")]]

namespace wire {
namespace {

constexpr size_t kBlock = sizeof(__m128i);

// The quotient x^96 / P, by long division; without its last coefficient, of x^0, which does not fit
// and is not needed. Bit i is the coefficient of x^(64-i).
constexpr uint64_t reciprocal_of_p() {
    uint64_t quotient = 1;
    uint32_t remainder = kCrc32Polynomial;  // x^32 less P
    for (int bit = 1; bit < 64; ++bit) {
        quotient |= uint64_t{remainder & 1} << bit;
        remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kCrc32Polynomial : 0);
    }
    return quotient;
}

// What moves a block on by so many blocks: the factors of its first and of its last 8 bytes.
template <int blocks>
CARRY_LESS_TARGET inline __m128i factors() {
    constexpr int kBits = blocks * 128;
    constexpr int64_t kFirst = first_factor(kBits);
    constexpr int64_t kLast = last_factor(kBits);
    return _mm_set_epi64x(kLast, kFirst);
}

CARRY_LESS_TARGET inline __m128i load(const uint8_t* bytes) {
    return _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(bytes)));
}

// `block` moved on by `factors` onto `target`.
CARRY_LESS_TARGET inline __m128i fold(__m128i block, __m128i factors, __m128i target) {
    const __m128i first = _mm_clmulepi64_si128(block, factors, 0x00);
    const __m128i last = _mm_clmulepi64_si128(block, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(first, last), target);
}

// `block` moved onto the `count` < 16 bytes that end at `end`. It is first shifted by them: what
// leaves it is moved on by a whole block, the rest makes a block with them.
CARRY_LESS_TARGET inline __m128i fold_part(__m128i block, const uint8_t* end, size_t count) {
    // Indices for a shuffle; those with the top bit yield 0.
    static constexpr uint8_t kShifts[3 * kBlock] = {
        0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
        0x80, 0x80, 0x80, 0x80, 0,    1,    2,    3,    4,    5,    6,    7,
        8,    9,    10,   11,   12,   13,   14,   15,   0x80, 0x80, 0x80, 0x80,
        0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
    const __m128i leaving = _mm_shuffle_epi8(block, load(kShifts + count));
    const __m128i to_front = load(kShifts + kBlock + count);
    const __m128i rest =
        _mm_blendv_epi8(_mm_shuffle_epi8(block, to_front), load(end - kBlock), to_front);
    return fold(leaving, factors<1>(), rest);
}

// The remainder of `block` times x^32, as the last 4 bytes of a message count: Barrett's reduction.
CARRY_LESS_TARGET inline uint32_t divide(__m128i block) {
    // First to 96 bits, at the front of a block: the first 8 bytes times x^96 and the last 8 times
    // x^32. The factor stands in the first 4 of its 8 bytes, which brings the product to the front.
    constexpr int64_t kFactor = power_of_x(96 - 1);
    const __m128i dividend = _mm_xor_si128(
        _mm_clmulepi64_si128(block, _mm_cvtsi64_si128(kFactor), 0x00), _mm_srli_si128(block, 8));
    // Its first 64 bits times the reciprocal are the quotient; this times P leaves the remainder.
    constexpr auto kReciprocal = static_cast<int64_t>(reciprocal_of_p());
    constexpr int64_t kP = int64_t{kCrc32Polynomial} << 1 | 1;  // all 33 coefficients
    const __m128i division = _mm_set_epi64x(kP, kReciprocal);
    const __m128i quotient = _mm_clmulepi64_si128(dividend, division, 0x00);
    const __m128i multiple = _mm_clmulepi64_si128(quotient, division, 0x10);
    return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(dividend, multiple), 2));
}

}  // namespace

bool has_carry_less_multiplication() {
    // Not by __builtin_cpu_supports, which brings the names of all processors along.
    constexpr unsigned int kNeeded = bit_PCLMUL | bit_SSE4_1;
    unsigned int eax = 0;
    unsigned int ebx = 0;
    unsigned int ecx = 0;
    unsigned int edx = 0;
    return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & kNeeded) == kNeeded;
}

CARRY_LESS_TARGET uint32_t carry_less_crc32(std::span<const uint8_t> bytes,
                                            uint32_t checksum_so_far) {
    if (bytes.size() < kBlock) {
        return portable_crc32(bytes, checksum_so_far);
    }
    const uint8_t* next = bytes.data() + kBlock;
    size_t left = bytes.size() - kBlock;
    __m128i block =
        _mm_xor_si128(load(bytes.data()), _mm_cvtsi32_si128(static_cast<int>(~checksum_so_far)));
    if (left >= 3 * kBlock) {
        // Four blocks that do not wait for each other keep the multiplier busy.
        __m128i second = load(next);
        __m128i third = load(next + kBlock);
        __m128i fourth = load(next + 2 * kBlock);
        next += 3 * kBlock;
        left -= 3 * kBlock;
        for (; left >= 4 * kBlock; left -= 4 * kBlock, next += 4 * kBlock) {
            block = fold(block, factors<4>(), load(next));
            second = fold(second, factors<4>(), load(next + kBlock));
            third = fold(third, factors<4>(), load(next + 2 * kBlock));
            fourth = fold(fourth, factors<4>(), load(next + 3 * kBlock));
        }
        third = fold(block, factors<2>(), third);
        fourth = fold(second, factors<2>(), fourth);
        block = fold(third, factors<1>(), fourth);
    }
    for (; left >= kBlock; left -= kBlock, next += kBlock) {
        block = fold(block, factors<1>(), load(next));
    }
    if (left > 0) {
        block = fold_part(block, next + left, left);
    }
    return ~divide(block);
}

}  // namespace wire

#endif
