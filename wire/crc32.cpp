// SPDX-License-Identifier: Apache-2.0
#include "wire/crc32.h"

#include <algorithm>
#include <atomic>

#include "wire/crc32_paths.h"

namespace wire {
namespace {

constexpr Crc32Path kPaths[] = {
#if defined(__x86_64__)
    {"vpclmulqdq", has_wide_carry_less_multiplication, wide_carry_less_crc32},
    {"pclmulqdq", has_carry_less_multiplication, carry_less_crc32},
#elif defined(__ARMEL__) || defined(__AARCH64EL__)
    {"crc32", has_crc32_instructions, instruction_crc32},
#endif
    {"portable", [] { return true; }, portable_crc32},
};

uint32_t choose_and_compute(std::span<const uint8_t> bytes, uint32_t checksum_so_far);

// Until the first call, the function that chooses: so it may be called before main(), and threads
// that call it at the same time all choose alike.
constinit std::atomic<decltype(Crc32Path::crc32)> chosen = choose_and_compute;

uint32_t choose_and_compute(std::span<const uint8_t> bytes, uint32_t checksum_so_far) {
    const Crc32Path& path =
        *std::find_if(std::begin(kPaths), std::end(kPaths),
                      [](const Crc32Path& each) { return each.is_supported(); });
    chosen.store(path.crc32, std::memory_order_relaxed);
    return path.crc32(bytes, checksum_so_far);
}

}  // namespace

std::span<const Crc32Path> crc32_paths() {
    return kPaths;
}

uint32_t crc32(std::span<const uint8_t> bytes) {
    return crc32(bytes, 0);
}

uint32_t crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far) {
    return chosen.load(std::memory_order_relaxed)(bytes, checksum_so_far);
}

}  // namespace wire
