// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/misc_data_messages.h"

#include "wire/little_endian.h"

int32_t glink__shm_packet_response::status() const {
    return static_cast<int32_t>(wire::word_at(bytes, 16));
}

uint32_t glink__shm_packet_response::max_payload_size() const {
    return wire::word_at(bytes, 20);
}

namespace misc_data {
namespace {

void put_header(std::span<uint8_t> packet, PacketKind kind, uint32_t type, uint32_t size,
                uint32_t sequence) {
    wire::put_word_at(packet, 0, kind);
    wire::put_word_at(packet, 4, type);
    wire::put_word_at(packet, 8, size);
    wire::put_word_at(packet, 12, sequence);
}

}  // namespace

Header start_packet(uint16_t type, uint32_t total) {
    Header packet{};
    put_header(packet, PACKET_START, type, total, 0);
    return packet;
}

std::array<uint8_t, kHeaderSize + 4> crc_packet(uint16_t type, uint32_t checksum) {
    std::array<uint8_t, kHeaderSize + 4> packet{};
    put_header(packet, PACKET_CRC, type, sizeof(checksum), 0);
    wire::put_word_at(packet, kHeaderSize, checksum);
    return packet;
}

Header finish_packet() {
    Header packet{};
    put_header(packet, PACKET_FINISH, 0, 0, 0);
    return packet;
}

void build_data_packet(std::vector<uint8_t>& packet, uint16_t type, const Piece& piece,
                       std::span<const uint8_t> data) {
    packet.clear();
    packet.reserve(size_t{kHeaderSize} + piece.size);
    packet.resize(kHeaderSize);
    put_header(packet, piece.kind, type, piece.size, piece.sequence);
    wire::Writer(packet).bytes(data.subspan(piece.offset, piece.size));
}

// A limit below the header's size leaves, modulo 2^32, a chunk that hardly any data exceeds.
DataCutter::DataCutter(uint32_t limit, uint32_t total)
    : chunk_(static_cast<uint32_t>(int64_t{limit} - kHeaderSize)),
      total_(total),
      rest_in_one_(chunk_covers_rest()) {}

// Written so that nothing wraps: the co-processor chose the chunk.
bool DataCutter::chunk_covers_rest() const {
    return total_ == 0 || chunk_ >= total_ - 1 - offset_;
}

Piece DataCutter::next() {
    const uint32_t size = rest_in_one_ ? total_ - offset_ : chunk_;
    const Piece piece = {rest_in_one_ ? PACKET_LAST_DATA : PACKET_DATA, offset_, size, ++sequence_};
    offset_ += size;
    rest_in_one_ = rest_in_one_ || chunk_covers_rest();
    return piece;
}

}  // namespace misc_data
