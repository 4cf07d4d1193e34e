// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

// Hands out packets in the pieces that a reader asks for: the rest of a packet stays for the next
// read, and no read ever gets bytes of two packets.
class PacketCutter {
  public:
    bool empty() const { return position_ == packet_.size(); }

    // The next packet; only when empty().
    void refill(std::vector<uint8_t> packet) {
        packet_ = std::move(packet);
        position_ = 0;
    }

    // At most `size` bytes.
    std::vector<uint8_t> take(size_t size) {
        const size_t count = std::min(size, packet_.size() - position_);
        const auto begin = packet_.begin() + static_cast<std::ptrdiff_t>(position_);
        position_ += count;
        return {begin, begin + static_cast<std::ptrdiff_t>(count)};
    }

    void clear() { refill({}); }

  private:
    std::vector<uint8_t> packet_;
    size_t position_ = 0;
};

}  // namespace sim
