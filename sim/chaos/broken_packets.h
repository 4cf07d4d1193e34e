// SPDX-License-Identifier: Apache-2.0
// What a co-processor out of order makes of a packet that it means to send.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "sim/chaos/dice.h"

namespace sim {

// Where a channel's messages have the words that can be wrong.
struct MessageLayout {
    size_t command_at;
    size_t length_at;
    size_t crc_at;
    size_t magic_at;  // or, without a magic word, another one
};

struct BrokenPackets {
    std::string how;             // in words
    std::vector<Bytes> packets;  // instead of the one; empty: it is lost
};

BrokenPackets break_packet(const Bytes& packet, const MessageLayout& layout, Dice& dice);

}  // namespace sim
