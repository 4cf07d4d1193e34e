// SPDX-License-Identifier: Apache-2.0
#include "sweep/disturbance.h"

#include <algorithm>

namespace sweep {
namespace {

using Packet = std::vector<uint8_t>;

Packet with_word(Packet packet, std::optional<size_t> at, uint32_t word) {
    if (!at || *at + 4 > packet.size()) return packet;
    for (size_t i = 0; i < 4; ++i) packet[*at + i] = static_cast<uint8_t>(word >> (8 * i));
    return packet;
}

}  // namespace

MessageShape shape_of(sim::Channel channel) {
    if (channel == sim::Channel::kDfu) return {8, 4, 12, 0};
    if (channel == sim::Channel::kRma) return {4, {}, 0, 8};
    return {};
}

std::vector<Packet> disturbed(sim::Channel channel, Disturbance kind, uint32_t value,
                              const Packet& packet, const Packet& before) {
    const MessageShape shape = shape_of(channel);
    switch (kind) {
        case Disturbance::kNone:
            return {packet};
        case Disturbance::kLength:
            return {with_word(packet, shape.length_at, value)};
        case Disturbance::kPadded: {
            Packet padded = with_word(packet, shape.length_at, value);
            padded.resize(std::max<size_t>(padded.size(), value));
            return {padded};
        }
        case Disturbance::kMagic:
            return {with_word(packet, shape.magic_at, value)};
        case Disturbance::kCrc:
            return {with_word(packet, shape.crc_at, value)};
        case Disturbance::kCommand:
            return {with_word(packet, shape.command_at, value)};
        case Disturbance::kDuplicated:
            return {packet, packet};
        case Disturbance::kLate:
            return {before.empty() ? packet : before, packet};
        case Disturbance::kDropped:
            return {};
    }
    return {packet};
}

}  // namespace sweep
