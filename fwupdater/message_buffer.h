// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

// Lends out the one buffer that messages are built in, so that a warm session sends without an
// allocation. Two threads may send at once, and a failed send may send again from the error
// callback, while the buffer is out: the second one gets a buffer of its own.
class MessageBuffer {
  public:
    std::vector<uint8_t> take() {
        const std::lock_guard lock(lock_);
        return std::exchange(spare_, {});
    }

    void give_back(std::vector<uint8_t> buffer) {
        const std::lock_guard lock(lock_);
        if (buffer.capacity() > spare_.capacity()) {
            spare_ = std::move(buffer);
        }
    }

  private:
    std::mutex lock_;
    std::vector<uint8_t> spare_;
};
