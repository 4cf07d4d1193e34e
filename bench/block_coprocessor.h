// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace bench {

inline constexpr const char* kRmaChannel = "/dev/glink_pkt_marlo_rma";
inline constexpr uint32_t kBlockBytes = 4096;
inline constexpr uint32_t kPartitionBlocks = 1024;
inline constexpr uint32_t kPartitionId = 1;
// In front of a block, both ways.
inline constexpr size_t kBlockHeadBytes = 32;
// What the host's transport takes in at first; a message that is longer comes as two packets, since
// of a packet that is longer a socket would drop the rest.
inline constexpr size_t kFirstPacketBytes = 40;

// The co-processor's side of the RMA protocol (rma/rma_messages.h) over a SOCK_SEQPACKET pair: it
// asks for one thing after the other. All calls throw std::runtime_error where an answer does not
// come within ten seconds, or is not the right one.
class BlockCoprocessor {
  public:
    BlockCoprocessor();
    ~BlockCoprocessor();
    BlockCoprocessor(const BlockCoprocessor&) = delete;
    BlockCoprocessor& operator=(const BlockCoprocessor&) = delete;

    int hosts_end() const { return ends_[1]; }

    void connect();
    // One block after the other, from the partition's start on and again from there: how many a
    // second.
    double read_blocks(uint32_t count);
    double write_blocks(uint32_t count);
    // Writes some blocks, each with contents of its own, and reads them back, checksums included.
    void check();

  private:
    using Bytes = std::span<const uint8_t>;

    Bytes read_block(uint32_t number);
    void write_block(uint32_t number);
    void send(Bytes message);
    Bytes answer(uint32_t command, size_t size);

    int ends_[2] = {-1, -1};
    std::vector<uint8_t> request_;
    std::vector<uint8_t> answer_;
};

}  // namespace bench
