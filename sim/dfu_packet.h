// SPDX-License-Identifier: Apache-2.0
// The messages of the firmware download channel as the co-processor sees them.
//
// Each message is one packet: a header of four little-endian words (id, magic, length of the whole
// message, CRC-32 of the whole message with this word 0), then the payload. The co-processor sends
// requests, one at a time; the host answers with the same image, offset and length, then the data.
// The host begins: it has ranges erased and asks for the state (special operations, each answered),
// then starts the update.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <vector>

#include "sim/packet_words.h"

namespace sim::dfu {

using sim::hex;
using sim::word_at;

enum Id : uint32_t {
    kUpdateRequest = 1,        // from the host: 1, 0, 0, "IMG UPDT"
    kUpdateResponse = 2,       // to the host
    kInfoRequest = 3,          // to the host: image
    kInfoResponse = 4,         // from the host: image, size, 0
    kOffsetRequest = 5,        // to the host: image, offset, length
    kOffsetResponse = 6,       // from the host: the same three, then the bytes
    kCancelRequest = 7,        // to the host; not answered
    kImageEndRequest = 9,      // to the host: image; not answered
    kSessionEndRequest = 11,   // to the host
    kSessionEndResponse = 12,  // from the host: 0, 0, 0
    kSpecialRequest = 13,      // from the host: operation, two arguments
    kSpecialResponse = 14,     // to the host: the 28 bytes of a special response
};

constexpr uint32_t kMagic = 0x0A0B0C0D;
constexpr size_t kHeaderSize = 16;

constexpr uint32_t kEraseOperation = 0;  // arguments: start, size
constexpr uint32_t kStateOperation = 1;  // arguments: 0, 0

// What the co-processor answers to the state query.
enum State : uint32_t { kInit = 0, kInfo = 1, kOffset = 2, kSessionEnd = 3, kCancelled = 4 };

// "OFFSET_REQ"
const char* state_name(State state);

// "IMG_INFO_REQ"; the number for an id without a name.
std::string message_name(uint32_t id);

std::vector<uint8_t> make_packet(uint32_t id, std::initializer_list<uint32_t> payload_words,
                                 std::span<const uint8_t> data = {});

// Empty if the header of a packet is right, else what is wrong with it in words.
std::string header_error(std::span<const uint8_t> packet);

// The CRC that the header of this packet must carry.
uint32_t packet_crc(std::span<const uint8_t> packet);

// The name, length and decoded fields of a packet, for events.
nlohmann::json describe(std::span<const uint8_t> packet);

}  // namespace sim::dfu
