// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// The misc-data protocol on the channel "glink_pkt_marlo_custom_data", by which a co-processor
// without flash is given Bluetooth firmware and settings.
//
// Who speaks. The host (this daemon) sends one packet and waits for its answer before the next.
//
// Phases of a transfer:
//   1. For each resource: one start packet, whose answer says how large a packet may be; the
//      resource's bytes in data packets; one CRC packet.
//   2. One finish packet, after all resources.
//
// Layout. Every field is a 32-bit little-endian word; offsets are from the start of the packet.
//
//   kind        +0   +4 type      +8                +12         +16
//   start        0   Offload_Type size of all data  0
//   data         1   Offload_Type payload bytes     sequence    payload, more follows
//   last data    2   Offload_Type payload bytes     sequence    payload, the last or only one
//   CRC          4   Offload_Type 4                 0           CRC-32 of all data, a word
//   finish       5   0            0                 0
//
//   answer (24 bytes)   +0 16 bytes that nobody looks at   +16 status, signed, 0 success
//                       +20 after a start: the largest packet in bytes, header included
//
// Sequence numbers count the data packets of one resource from 1. Data that fits is one packet of
// the last kind, and so is empty data. What does not fit is cut into packets of the largest size,
// except that the last one takes one byte more rather than leave it to a packet of its own.

// The co-processor's answer, as the bytes that the channel fills in place: one that brings fewer
// leaves the fields of the answer before it.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
struct glink__shm_packet_response {
    static constexpr uint32_t kSize = 24;
    std::array<uint8_t, kSize> bytes{};

    int32_t status() const;  // 0 success, otherwise the co-processor's error code
    uint32_t max_payload_size() const;
};

namespace misc_data {

inline constexpr uint32_t kHeaderSize = 16;

enum PacketKind : uint32_t {
    PACKET_START = 0,
    PACKET_DATA = 1,
    PACKET_LAST_DATA = 2,
    PACKET_CRC = 4,
    PACKET_FINISH = 5,
};

using Header = std::array<uint8_t, kHeaderSize>;

Header start_packet(uint16_t type, uint32_t total);
std::array<uint8_t, kHeaderSize + 4> crc_packet(uint16_t type, uint32_t checksum);
Header finish_packet();

// Which part of the data a data packet carries.
struct Piece {
    PacketKind kind;  // PACKET_DATA or PACKET_LAST_DATA
    uint32_t offset;
    uint32_t size;
    uint32_t sequence;
};

// Replaces `packet` by the data packet with this piece of `data`. Throws std::bad_alloc, or
// std::length_error where a packet with the piece is longer than a vector may be.
void build_data_packet(std::vector<uint8_t>& packet, uint16_t type, const Piece& piece,
                       std::span<const uint8_t> data);

// Cuts `total` bytes of data into pieces for packets of at most `limit` bytes, which the
// co-processor chooses freely. The pieces follow each other without a gap and end with the data.
class DataCutter {
  public:
    DataCutter(uint32_t limit, uint32_t total);

    // False where packets would carry nothing and never come to an end.
    bool can_advance() const { return rest_in_one_ || chunk_ > 0; }

    // The next piece is the last one, whatever its size.
    void take_rest_in_one() { rest_in_one_ = true; }

    // The next piece. Not after one of the kind PACKET_LAST_DATA, nor if !can_advance().
    Piece next();

  private:
    // Whether all that is left goes into one packet, which then may exceed the limit by a byte.
    bool chunk_covers_rest() const;

    uint32_t chunk_;  // payload of a full packet
    uint32_t total_;
    uint32_t offset_ = 0;
    uint32_t sequence_ = 0;
    bool rest_in_one_;
};

}  // namespace misc_data
