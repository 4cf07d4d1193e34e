// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

// The CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320, initial value all ones, final
// complement) that protects every message exchanged with the co-processor. Safe on any thread.
namespace wire {

// Checksum of `bytes`; of no bytes it is 0.
uint32_t crc32(std::span<const uint8_t> bytes);

// Continues a checksum: crc32(a followed by b) == crc32(b, crc32(a)).
uint32_t crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far);

}  // namespace wire
