// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// The firmware download (DFU) protocol on the channel "glink_pkt_marlo_dfu".
//
// Who speaks. The host (this daemon) opens the conversation; from the image phase on the
// co-processor leads it and the host only answers. One message is one packet. At any time one
// request is outstanding: each side sends its next message after it has seen the answer.
//
// Phases of a download:
//   1. Erase: one DFU_SPCL_OPERATION_REQ (erase) per erasable partition, each after the
//      DFU_SPCL_OPERATION_RESP to the one before.
//   2. State: one DFU_SPCL_OPERATION_REQ (get state). The state INIT leads to MG_UPDT_REQ; any
//      other state names the request that the co-processor waits on, which is answered as if it
//      had just arrived. After a lost channel the download resumes here.
//   3. Images, chosen by the co-processor: IMG_INFO_REQ -> IMG_INFO_RESP, then IMG_OFFSET_REQ ->
//      IMG_OFFSET_RESP at offsets and lengths of its choice, then IMG_UPDT_END_REQ (no answer).
//   4. End: SESSION_END_REQ -> SESSION_END_RESP.
//
// Layout. Every field is an unsigned 32-bit little-endian word; offsets are from the start of the
// message.
//
//   header (16 bytes)   +0 command id   +4 DFU_MAGIC   +8 length of the whole message
//                       +12 CRC-32 of the whole message, taken with this field 0
//
//   id name                    from   payload
//    1 MG_UPDT_REQ             host   +16 1, +20 0, +24 0, +28 the text "IMG UPDT" (8 bytes)
//    2 MG_UPDT_RESP            co-p.  not read
//    3 IMG_INFO_REQ            co-p.  +16 image id
//    4 IMG_INFO_RESP           host   +16 image id, +20 image size in bytes, +24 0
//    5 IMG_OFFSET_REQ          co-p.  +16 image id, +20 offset, +24 fragment length
//    6 IMG_OFFSET_RESP         host   +16 to +24 as requested, +28 the fragment
//    7 CANCEL_UPDT_REQ         co-p.  not read
//    8 CANCEL_UPDT_RESP        co-p.  not read
//    9 IMG_UPDT_END_REQ        co-p.  not read
//   10 IMG_UPDT_END_RESP       co-p.  not read
//   11 SESSION_END_REQ         co-p.  not read
//   12 SESSION_END_RESP        host   +16 0, +20 0, +24 0
//   13 DFU_SPCL_OPERATION_REQ  host   +16 operation, +20 erase: start on the flash,
//                                     +24 erase: length in bytes (both 0 to get the state)
//   14 DFU_SPCL_OPERATION_RESP co-p.  +16 dfu_spcl_cmd_response
//
// Reply rules. A fragment always has the requested length: past the image's end it is filled with
// zeros. It is left out when the length is 0 or the offset is not inside the image. An image that
// does not exist has size 0. The ids 1, 4, 6 and 12 are reported when the co-processor sends them;
// 13, 0 and anything above 14 is invalid then.

// Where the co-processor's own download state machine stands. It may report other values.
enum class DFUState : uint32_t {
    INIT = 0,
    INFO_REQ = 1,
    OFFSET_REQ = 2,
    SESSION_END_REQ = 3,
    CANCEL_UPDATE_REQ = 4,
};

// Payload of DFU_SPCL_OPERATION_RESP.
struct dfu_spcl_cmd_response {
    uint32_t operation;      // the dfu::SpecialOperation that is answered; others are ignored
    uint32_t response_code;  // 0 success
    uint32_t reserved;
    uint32_t dfu_state;     // a DFUState
    uint32_t image_id;      // INFO_REQ, OFFSET_REQ: the image worked on
    uint32_t offset;        // OFFSET_REQ: where the next fragment begins
    uint32_t fragment_len;  // OFFSET_REQ: its length
};

namespace dfu {

inline constexpr uint32_t DFU_MAGIC = 0x0A0B0C0D;
inline constexpr uint32_t kHeaderSize = 16;

// The longest message that is received: header and dfu_spcl_cmd_response.
inline constexpr uint32_t DFU_RX_BUFFER_SIZE = 44;

enum MessageId : uint32_t {
    MG_UPDT_REQ = 1,
    MG_UPDT_RESP = 2,
    IMG_INFO_REQ = 3,
    IMG_INFO_RESP = 4,
    IMG_OFFSET_REQ = 5,
    IMG_OFFSET_RESP = 6,
    CANCEL_UPDT_REQ = 7,
    CANCEL_UPDT_RESP = 8,
    IMG_UPDT_END_REQ = 9,
    IMG_UPDT_END_RESP = 10,
    SESSION_END_REQ = 11,
    SESSION_END_RESP = 12,
    DFU_SPCL_OPERATION_REQ = 13,
    DFU_SPCL_OPERATION_RESP = 14,
};

enum SpecialOperation : uint32_t {
    SPCL_OP_RAW_FLASH_ERASE = 0,
    SPCL_OP_GET_DFU_STATE = 1,
};

// Name of a message that the host accepts, null for an invalid id.
const char* received_message_name(uint32_t command_id);

// Name of a state as it is shown; empty for a value that has none.
const char* state_name(DFUState state);

// A received message. Fields beyond the end of a short one read as 0.
class ReceivedMessage {
  public:
    // Copies `bytes`, of which there are at most DFU_RX_BUFFER_SIZE: more are cut off.
    explicit ReceivedMessage(std::span<const uint8_t> bytes);

    uint32_t command_id() const;
    uint32_t image_id() const;       // IMG_INFO_REQ, IMG_OFFSET_REQ
    uint32_t offset() const;         // IMG_OFFSET_REQ
    uint32_t fragment_len() const;   // IMG_OFFSET_REQ
    uint32_t response_code() const;  // DFU_SPCL_OPERATION_RESP
    dfu_spcl_cmd_response special_response() const;

  private:
    std::array<uint8_t, DFU_RX_BUFFER_SIZE> buffer_{};
};

// What follows the header, in pieces, so that image bytes are copied once: into the packet.
struct Payload {
    uint32_t length = 0;  // as the length field counts it
    std::span<const uint8_t> fields;
    std::span<const uint8_t> image_bytes;
    size_t zero_fill = 0;  // zeros behind the image bytes
};

// Three words: the fields of every request and answer except MG_UPDT_REQ.
using ThreeWords = std::array<uint8_t, 12>;
ThreeWords three_words(uint32_t first, uint32_t second, uint32_t third);

// MG_UPDT_REQ's payload.
std::array<uint8_t, 20> update_request();

// IMG_OFFSET_RESP's payload over `fields`, which the result refers to, as it does to `image`.
Payload fragment_payload(const ThreeWords& fields, std::span<const uint8_t> image, uint32_t offset,
                         uint32_t fragment_len);

// Replaces `message` by the whole message, and returns its CRC. Throws std::bad_alloc.
uint32_t build_message(std::vector<uint8_t>& message, uint32_t command_id, const Payload& payload);

// Progress shown for a fragment: offset * 100 / size in 32-bit arithmetic, which wraps for offsets
// above 42,949,672; 0 for an empty image.
uint32_t progress_percentage(uint32_t offset, uint32_t size);

}  // namespace dfu
