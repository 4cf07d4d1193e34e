// SPDX-License-Identifier: Apache-2.0
#include "rma/rma_messages.h"

#include <algorithm>

#include "wire/crc32.h"
#include "wire/little_endian.h"

namespace rma {
namespace {

// What the co-processor expects in each answer to CONNECT.
constexpr uint32_t kConnectConstant = 3;
constexpr uint32_t kConnectPage = 4096;

constexpr size_t kCrcSize = 4;
constexpr size_t kLengthOffset = 4;
constexpr size_t kCommandOffset = 8;
constexpr size_t kRequestWordOffset = 12;
constexpr size_t kMemoryIdOffset = 16;
constexpr size_t kSecondIdOffset = 20;
constexpr size_t kBlockOffsetOffset = 20;
constexpr size_t kSizeOffset = 24;  // of a partition or a block
constexpr size_t kBlockOffset = 32;
constexpr size_t kClientPrivateOffset = 36;

template <size_t count>
std::array<uint8_t, 4 * count> in_bytes(const uint32_t (&words)[count]) {
    std::array<uint8_t, 4 * count> bytes{};
    for (size_t index = 0; index < count; ++index) {
        wire::put_word_at(bytes, 4 * index, words[index]);
    }
    return bytes;
}

}  // namespace

uint32_t received_crc(Bytes message) {
    return wire::word_at(message, 0);
}
uint32_t total_length(Bytes message) {
    return wire::word_at(message, kLengthOffset);
}
uint32_t memory_id(Bytes message) {
    return wire::word_at(message, kMemoryIdOffset);
}

std::optional<uint32_t> command_id(Bytes message) {
    if (message.size() < kHeaderSize) {
        return std::nullopt;
    }
    return wire::word_at(message, kCommandOffset);
}

uint32_t connect_crc(Bytes message) {
    const Bytes connect = message.first(std::min<size_t>(message.size(), kConnectSize));
    return wire::crc32(connect.subspan(std::min(connect.size(), kCrcSize)));
}

ConnectRequest connect_request(Bytes message) {
    return {.memory_id = memory_id(message),
            .second_id = wire::word_at(message, kSecondIdOffset),
            .partition_size = wire::word_at(message, kSizeOffset),
            .client_private = wire::word_at(message, kClientPrivateOffset)};
}

BlockRequest block_request(Bytes message) {
    return {.request_word = wire::word_at(message, kRequestWordOffset),
            .memory_id = memory_id(message),
            .offset = wire::word_at(message, kBlockOffsetOffset),
            .size = wire::word_at(message, kSizeOffset)};
}

std::optional<Bytes> block_to_write(Bytes message, uint32_t size) {
    if (message.size() < kBlockOffset || size > message.size() - kBlockOffset) {
        return std::nullopt;
    }
    return message.subspan(kBlockOffset, size);
}

std::array<uint8_t, 24> connect_response(uint32_t client_private, uint32_t memory_id) {
    return in_bytes({client_private, 0, memory_id, kConnectConstant, kConnectPage, kConnectPage});
}

std::array<uint8_t, 16> disconnect_response(uint32_t connected_id, uint32_t client_private,
                                            uint32_t disconnected_id) {
    return in_bytes({connected_id, client_private, disconnected_id, 0});
}

std::array<uint8_t, 20> block_response(const BlockRequest& request, uint32_t client_private,
                                       BlockResult result) {
    return in_bytes(
        {request.request_word, client_private, request.memory_id, request.size, result});
}

std::vector<uint8_t> build_message(uint32_t command_id, Bytes fields, Bytes block) {
    const size_t size = kHeaderSize + fields.size() + block.size();
    std::vector<uint8_t> message;
    message.reserve(size);
    wire::Writer(message)
        .u32(0)
        .u32(static_cast<uint32_t>(size))
        .u32(command_id)
        .bytes(fields)
        .bytes(block);
    wire::put_word_at(message, 0, wire::crc32(Bytes(message).subspan(kCrcSize)));
    return message;
}

}  // namespace rma
