// SPDX-License-Identifier: Apache-2.0
// A flash of 2^32 bytes of which only what was written takes memory. At first it is full of the old
// firmware: nothing can be written before it is erased.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace sim {

class Flash {
  public:
    static constexpr uint64_t kSize = uint64_t{1} << 32;

    // The range must lie inside the flash.
    void erase(uint64_t start, uint64_t size);
    bool erased(uint64_t start, uint64_t size) const;

    // False, and nothing written, if a byte of the range is not erased or lies outside. A byte that
    // has been written counts as not erased, whatever its value.
    bool write(uint64_t start, std::span<const uint8_t> data);

    // True if the bytes from `start` on were written and equal `expected`. False: *why names the
    // first byte that differs, by its offset from `start`.
    bool matches(uint64_t start, std::span<const uint8_t> expected, std::string* why) const;

  private:
    void forget(uint64_t start, uint64_t end);

    std::map<uint64_t, uint64_t> erased_;  // start -> end; ranges neither touch nor overlap
    std::map<uint64_t, std::vector<uint8_t>> written_;  // start -> bytes; ranges do not overlap
};

}  // namespace sim
