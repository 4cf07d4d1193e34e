// SPDX-License-Identifier: Apache-2.0
// The packets of the misc data channel as the co-processor sees them.
//
// The host sends, the co-processor answers each packet before the next one comes. A packet is a
// header of four little-endian words, then the payload:
//     start      0, type, size of the whole resource, 0
//     data       1, type, size of the payload, sequence from 1; the payload
//     last data  2, as data
//     CRC        4, type, 4, 0; CRC-32 of the resource
//     finish     5, 0, 0, 0
// The answer has 24 bytes: a header that nobody reads, the status (0: taken), and the largest
// packet that the co-processor wants, header included.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>

#include "sim/packet_words.h"

namespace sim::misc {

enum Kind : uint32_t { kStart = 0, kData = 1, kLastData = 2, kCrc = 4, kFinish = 5 };

constexpr size_t kHeaderSize = 16;
constexpr size_t kTypes = 2;  // 0: Bluetooth firmware, 1: Bluetooth settings

struct Header {
    uint32_t kind;
    uint32_t type;
    uint32_t size;
    uint32_t sequence;
};

// Of a short packet: as if zeros followed.
Header header_of(std::span<const uint8_t> packet);

// "last data"; the number for a kind without a name.
std::string kind_name(uint32_t kind);

// Empty if the packet is in itself what the table above says, else what is wrong with it.
std::string shape_error(std::span<const uint8_t> packet);

// The name, length and decoded fields of a packet of the host, for events.
nlohmann::json describe(std::span<const uint8_t> packet);

// `limit`: the largest packet; told in the answer to a start packet that was taken, else 0.
Bytes make_answer(std::span<const uint8_t> packet, uint32_t status, uint32_t limit);
nlohmann::json describe_answer(std::span<const uint8_t> answer);

}  // namespace sim::misc
