// SPDX-License-Identifier: Apache-2.0
// What can happen to a packet on its way to the daemon.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/device.h"

namespace sweep {

enum class Disturbance {
    kNone,
    kLength,      // its length field is the value
    kPadded,      // ... and zeros make it as long as that
    kMagic,       // another magic word; download channel only
    kCrc,         // another CRC
    kCommand,     // its command is the value
    kDuplicated,  // it comes twice
    kLate,        // the one before it comes once more, in front of it
    kDropped,     // it does not come
};

// Where the messages of a channel have what can be disturbed; none: nothing of the kind.
struct MessageShape {
    std::optional<size_t> length_at;
    std::optional<size_t> magic_at;
    std::optional<size_t> crc_at;
    std::optional<size_t> command_at;
};
MessageShape shape_of(sim::Channel channel);

// The packets that come instead of `packet`; `before` came last. A field that the packet is too
// short for stays as it is.
std::vector<std::vector<uint8_t>> disturbed(sim::Channel channel, Disturbance kind, uint32_t value,
                                            const std::vector<uint8_t>& packet,
                                            const std::vector<uint8_t>& before);

}  // namespace sweep
