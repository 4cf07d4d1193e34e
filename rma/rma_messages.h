// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The remote-memory-access (RMA) protocol on the channel "glink_pkt_marlo_rma": a co-processor
// without flash keeps its memory partitions in files of the host.
//
// Who speaks. The co-processor asks, the host answers. One message is one packet.
//
// Phases: CONNECT names a partition and makes sure of its file; then any number of DATA_READ and
// DATA_WRITE; DISCONNECT ends the conversation. A CONNECT may come at any time and names the
// partition of what follows it.
//
// Layout. Every field is an unsigned 32-bit little-endian word; offsets are from the start of the
// message. This header is not that of the firmware download.
//
//   header (12 bytes)   +0 CRC-32 of bytes 4 to the end   +4 length of the whole message
//                       +8 command id
//
//   id  name                 from   payload
//     0 CONNECT              co-p.  +16 memory id, +20 second id, +24 partition size in bytes,
//                                   +36 client private value; 40 bytes in all
//     1 CONNECT response     host   +12 client private value, +16 0, +20 memory id, +24 3,
//                                   +28 4096, +32 4096
//     2 DISCONNECT           co-p.  +16 memory id
//     3 DISCONNECT response  host   +12 memory id and +16 client private value of the CONNECT,
//                                   +20 memory id of the DISCONNECT, +24 0
//   256 DATA_READ            co-p.  +12 request word, +16 memory id, +20 offset in the partition,
//                                   +24 block size
//   257 DATA_READ response   host   +12 request word, +16 client private value, +20 memory id,
//                                   +24 block size, +28 0, +32 the block
//   512 DATA_WRITE           co-p.  as DATA_READ, +32 the block
//   513 DATA_WRITE response  host   as DATA_READ's up to the block size, +28 0 written, 1 not
//
// Reply rules. A CRC that does not match is no reason not to answer. A CONNECT shorter than its 40
// bytes is answered but makes no file: its partition size may be cut off, and a file of the wrong
// size would stay, since one that exists is kept. The block of a DATA_READ response is empty when
// the partition's file cannot be read; behind the file's end it is zeros.
namespace rma {

inline constexpr uint32_t kHeaderSize = 12;
inline constexpr uint32_t kConnectSize = 40;

// The longest block that is read: whatever asks for more is damaged, and to serve it would only
// take memory away from everybody.
inline constexpr uint32_t kMaximumBlock = 16 * 1024 * 1024;

enum CommandId : uint32_t {
    CONNECT = 0,
    CONNECT_RESPONSE = 1,
    DISCONNECT = 2,
    DISCONNECT_RESPONSE = 3,
    DATA_READ = 256,
    DATA_READ_RESPONSE = 257,
    DATA_WRITE = 512,
    DATA_WRITE_RESPONSE = 513,
};

// Last word of an answer about a block.
enum BlockResult : uint32_t { DONE = 0, NOT_WRITTEN = 1 };

using Bytes = std::span<const uint8_t>;

// Fields beyond the end of a short message read as 0.
uint32_t received_crc(Bytes message);
uint32_t total_length(Bytes message);
uint32_t memory_id(Bytes message);

// Nothing where the message is shorter than a header: its id cannot be known.
std::optional<uint32_t> command_id(Bytes message);

// The CRC of a CONNECT: of its bytes 4 to 39, as far as they are there.
uint32_t connect_crc(Bytes message);

struct ConnectRequest {
    uint32_t memory_id;
    uint32_t second_id;
    uint32_t partition_size;  // bytes
    uint32_t client_private;  // echoed in the answers that follow
};
ConnectRequest connect_request(Bytes message);

struct BlockRequest {  // DATA_READ, DATA_WRITE
    uint32_t request_word;
    uint32_t memory_id;
    uint32_t offset;
    uint32_t size;
};
BlockRequest block_request(Bytes message);

// The `size` bytes that a DATA_WRITE brings, part of `message`; nothing unless all are inside it.
std::optional<Bytes> block_to_write(Bytes message, uint32_t size);

// Payloads of the answers; a DATA_READ's is followed by the block.
std::array<uint8_t, 24> connect_response(uint32_t client_private, uint32_t memory_id);
std::array<uint8_t, 16> disconnect_response(uint32_t connected_id, uint32_t client_private,
                                            uint32_t disconnected_id);
std::array<uint8_t, 20> block_response(const BlockRequest& request, uint32_t client_private,
                                       BlockResult result);

// A whole message, its payload in two pieces. Throws std::bad_alloc.
std::vector<uint8_t> build_message(uint32_t command_id, Bytes fields, Bytes block);

}  // namespace rma
