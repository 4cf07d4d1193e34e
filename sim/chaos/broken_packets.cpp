// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/broken_packets.h"

#include <algorithm>

#include "sim/packet_words.h"

namespace sim {
namespace {

constexpr uint32_t kOddLengths[] = {0, 16, 44, 45, 4096, 0x80000000, 0xffffffff};
constexpr uint32_t kOddCommands[] = {8, 13, 15, 99, 255, 514, 1024, 0x7fffffff, 0xffffffff};
constexpr uint32_t kMostRandomBytes = 300;

enum class Way {
    kLength,
    kMagic,
    kCrc,
    kCommand,
    kRandom,
    kShort,
    kLost,
    kTwice,
    kInOneRead,
    kNothingFirst,
    kInPieces,
};

constexpr Way kWays[] = {Way::kLength, Way::kMagic,     Way::kCrc,          Way::kCommand,
                         Way::kRandom, Way::kShort,     Way::kLost,         Way::kTwice,
                         Way::kLength, Way::kInOneRead, Way::kNothingFirst, Way::kInPieces};

Bytes with_word(Bytes packet, size_t at, uint32_t word) {
    if (at + 4 <= packet.size()) put_word(packet, at, word);
    return packet;
}

// The first `count` bytes, and the others.
std::vector<Bytes> cut(const Bytes& packet, size_t count) {
    const auto at = packet.begin() + static_cast<std::ptrdiff_t>(std::min(count, packet.size()));
    return {Bytes(packet.begin(), at), Bytes(at, packet.end())};
}

Bytes joined(const Bytes& packet, const Bytes& another) {
    Bytes both = packet;
    both.insert(both.end(), another.begin(), another.end());
    return both;
}

}  // namespace

BrokenPackets break_packet(const Bytes& packet, const MessageLayout& layout, Dice& dice) {
    const auto size = static_cast<uint32_t>(packet.size());
    switch (dice.one_of(kWays)) {
        case Way::kLength: {
            const uint32_t length = dice.one_of(kOddLengths);
            return {"length field " + std::to_string(length),
                    {with_word(packet, layout.length_at, length)}};
        }
        case Way::kMagic:
            return {"wrong magic", {with_word(packet, layout.magic_at, dice.word())}};
        case Way::kCrc:
            return {"wrong CRC", {with_word(packet, layout.crc_at, dice.word())}};
        case Way::kCommand:
            return {"invalid command",
                    {with_word(packet, layout.command_at, dice.one_of(kOddCommands))}};
        case Way::kRandom:
            return {"random bytes", {dice.bytes(dice.between(1, kMostRandomBytes))}};
        case Way::kShort:
            return {"short packet", {cut(packet, dice.below(size))[0]}};
        case Way::kLost:
            return {"lost packet", {}};
        case Way::kTwice:
            return {"packet sent twice", {packet, packet}};
        case Way::kInOneRead:
            return {"two packets in one read", {joined(packet, packet)}};
        case Way::kNothingFirst:
            return {"empty read before the packet", {{}, packet}};
        case Way::kInPieces:
            return {"packet in pieces", cut(packet, dice.between(1, size - 1))};
    }
    return {};
}

}  // namespace sim
