// SPDX-License-Identifier: Apache-2.0
// By carry-less multiplication of two pairs at once (VPCLMULQDQ on registers of 32 bytes), as
// crc32_x86.cpp tells: a long message is folded into its last whole 128 bytes, and these and what
// is behind them are left to the path that multiplies one pair at a time.
#if defined(__x86_64__)

#include <cpuid.h>
#include <immintrin.h>

#include <cstddef>

#include "wire/crc32_paths.h"
#include "wire/crc32_powers.h"

#define WIDE_TARGET [[gnu::target("vpclmulqdq,avx2")]]

namespace wire {
namespace {

constexpr size_t kLane = sizeof(__m256i);
// As many that do not wait for each other keep the multiplier busy.
constexpr size_t kLanes = 4;
constexpr size_t kStride = kLanes * kLane;

WIDE_TARGET inline __m256i load(const uint8_t* bytes) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(bytes)));
}

WIDE_TARGET inline void store(uint8_t* bytes, __m256i lane) {
    _mm256_storeu_si256(static_cast<__m256i*>(static_cast<void*>(bytes)), lane);
}

// `lane` moved on by a stride onto `target`.
WIDE_TARGET inline __m256i fold(__m256i lane, __m256i target) {
    constexpr int64_t kFirst = first_factor(8 * kStride);
    constexpr int64_t kLast = last_factor(8 * kStride);
    const __m256i factors = _mm256_set_epi64x(kLast, kFirst, kLast, kFirst);
    const __m256i first = _mm256_clmulepi64_epi128(lane, factors, 0x00);
    const __m256i last = _mm256_clmulepi64_epi128(lane, factors, 0x11);
    return _mm256_xor_si256(_mm256_xor_si256(first, last), target);
}

// Whether the operating system saves the registers' upper halves.
[[gnu::target("xsave")]] bool keeps_wide_registers() {
    constexpr uint64_t kHalves = 0b110;  // of XCR0: the SSE and the AVX state
    return (_xgetbv(0) & kHalves) == kHalves;
}

}  // namespace

bool has_wide_carry_less_multiplication() {
    unsigned int eax = 0;
    unsigned int ebx = 0;
    unsigned int ecx = 0;
    unsigned int edx = 0;
    return has_carry_less_multiplication() && __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 &&
           (ecx & bit_OSXSAVE) != 0 && keeps_wide_registers() &&
           __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & bit_AVX2) != 0 &&
           (ecx & bit_VPCLMULQDQ) != 0;
}

WIDE_TARGET uint32_t wide_carry_less_crc32(std::span<const uint8_t> bytes,
                                           uint32_t checksum_so_far) {
    if (bytes.size() < 2 * kStride) {
        return carry_less_crc32(bytes, checksum_so_far);
    }
    const uint8_t* next = bytes.data() + kStride;
    size_t left = bytes.size() - kStride;
    __m256i lanes[kLanes];
    for (size_t lane = 0; lane < kLanes; ++lane) {
        lanes[lane] = load(bytes.data() + lane * kLane);
    }
    lanes[0] = _mm256_xor_si256(
        lanes[0], _mm256_set_epi64x(0, 0, 0, static_cast<int64_t>(uint64_t{~checksum_so_far})));
    for (; left >= kStride; left -= kStride, next += kStride) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
            lanes[lane] = fold(lanes[lane], load(next + lane * kLane));
        }
    }
    uint8_t folded[kStride];
    for (size_t lane = 0; lane < kLanes; ++lane) {
        store(folded + lane * kLane, lanes[lane]);
    }
    // The checksum so far is in the folded bytes already: ~0 adds nothing to them.
    return carry_less_crc32({next, left}, carry_less_crc32(folded, ~uint32_t{0}));
}

}  // namespace wire

#endif
