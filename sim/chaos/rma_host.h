// SPDX-License-Identifier: Apache-2.0
// What the host must make of each message on the remote memory channel, hostile ones included: its
// answer, and what is in its files afterwards.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "sim/coprocessor.h"

namespace sim {

class RmaHost {
  public:
    // Another one begins, with the same files.
    void begin_anew() { memory_id_ = second_id_ = client_word_ = 0; }
    // `message`: as the host's transport delivers it. None: it is not answered.
    std::optional<Bytes> answer_to(std::span<const uint8_t> message);

    // What must be on disk once the answers have arrived.
    const BackingFiles& files() const { return files_; }

    // A larger partition finds no memory on the host.
    static constexpr uint32_t kLargestPartition = 64 * 1024 * 1024;
    // The bytes of the partition that the message asks for; 0: it is no CONNECT.
    static uint32_t partition_wanted(std::span<const uint8_t> message);

  private:
    Bytes connect(std::span<const uint8_t> message);
    Bytes read(std::span<const uint8_t> message) const;
    Bytes write(std::span<const uint8_t> message);
    std::string file_name(uint32_t last_number) const;

    uint32_t memory_id_ = 0;  // of the last CONNECT, as the two below
    uint32_t second_id_ = 0;
    uint32_t client_word_ = 0;
    BackingFiles files_;
};

}  // namespace sim
