// SPDX-License-Identifier: Apache-2.0
// The messages of the remote memory channel as the co-processor sees them.
//
// The co-processor asks, the host answers with the next command. A message is a header of three
// little-endian words (CRC-32 of all that follows it, length of the whole message, command), then
// the payload; a dash is a word that the host does not read:
//     CONNECT      -, memory id, second id, size of the partition, -, -, client's word
//     DISCONNECT   -, memory id
//     DATA_READ    request word, memory id, offset, block size, -
//     DATA_WRITE   request word, memory id, offset, block size, -; the block
// and the answers:
//     CONNECT      client's word, 0, memory id, 3, 4096, 4096
//     DISCONNECT   memory id and client's word of the last CONNECT, memory id, 0
//     DATA_READ    request word, client's word, memory id, block size, 0; the block
//     DATA_WRITE   request word, client's word, memory id, block size, 0 or (not written) 1
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>

#include "sim/packet_words.h"

namespace sim::rma {

// The answer's command is the one that follows.
enum Command : uint32_t { kConnect = 0, kDisconnect = 2, kDataRead = 256, kDataWrite = 512 };

constexpr size_t kHeaderSize = 12;
constexpr size_t kBlockAt = 32;  // of a DATA_WRITE and of the answer to a DATA_READ

std::string command_name(uint32_t command);

Bytes make_message(uint32_t command, std::initializer_list<uint32_t> payload_words,
                   std::span<const uint8_t> data = {});

// Empty if the header of a message is right, else what is wrong with it in words.
std::string header_error(std::span<const uint8_t> message);

uint32_t command_of(std::span<const uint8_t> message);

// The name, length and decoded fields of a message, for events.
nlohmann::json describe(std::span<const uint8_t> message);

// Makes the CRC of a message wrong.
void spoil_crc(Bytes& message);
// Takes the last bytes away from the block of a DATA_WRITE, or all of them if there are not more;
// the header is right for what remains.
void cut_block(Bytes& message, size_t bytes);

}  // namespace sim::rma
