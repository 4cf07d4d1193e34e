// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/rma_host.h"

#include <algorithm>

#include "sim/rma_packet.h"

namespace sim {

using Message = std::span<const uint8_t>;

namespace {

constexpr size_t kWordAt = 12;  // of a read or a write
constexpr size_t kMemoryAt = 16;
constexpr size_t kSecondAt = 20;
constexpr size_t kOffsetAt = 20;
constexpr size_t kSizeAt = 24;
constexpr size_t kClientWordAt = 36;
constexpr size_t kConnectSize = 40;  // a shorter CONNECT makes no partition
constexpr uint32_t kLargestRead = 16 * 1024 * 1024;

// Zeros where the message ends before.
uint32_t padded_word_at(Message message, size_t at) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4 && at + i < message.size(); ++i) {
        word |= static_cast<uint32_t>(message[at + i]) << (8 * i);
    }
    return word;
}

bool inside(uint32_t offset, uint32_t size, size_t whole) {
    return offset <= whole && size <= whole - offset;
}

}  // namespace

std::optional<Bytes> RmaHost::answer_to(Message message) {
    if (message.size() < rma::kHeaderSize) return {};
    switch (rma::command_of(message)) {
        case rma::kConnect:
            return connect(message);
        case rma::kDisconnect:
            return rma::make_message(rma::kDisconnect + 1, {memory_id_, client_word_,
                                                            padded_word_at(message, kMemoryAt), 0});
        case rma::kDataRead:
            return read(message);
        case rma::kDataWrite:
            return write(message);
        default:
            return {};
    }
}

std::string RmaHost::file_name(uint32_t last_number) const {
    return std::to_string(memory_id_) + std::to_string(second_id_) + std::to_string(last_number);
}

uint32_t RmaHost::partition_wanted(Message message) {
    const bool makes_one =
        message.size() >= kConnectSize && rma::command_of(message) == rma::kConnect;
    return makes_one ? word_at(message, kSizeAt) : 0;
}

Bytes RmaHost::connect(Message message) {
    memory_id_ = padded_word_at(message, kMemoryAt);
    second_id_ = padded_word_at(message, kSecondAt);
    client_word_ = padded_word_at(message, kClientWordAt);
    const uint32_t size = padded_word_at(message, kSizeAt);
    if (message.size() >= kConnectSize && size <= kLargestPartition) {
        files_.try_emplace(file_name(memory_id_), Bytes(size));
    }
    return rma::make_message(rma::kConnect + 1, {client_word_, 0, memory_id_, 3, 4096, 4096});
}

// Zeros behind the end of the file; nothing at all where there is no file.
Bytes RmaHost::read(Message message) const {
    const uint32_t offset = padded_word_at(message, kOffsetAt);
    const uint32_t size = padded_word_at(message, kSizeAt);
    Bytes data;
    const auto file = files_.find(file_name(memory_id_));
    if (file != files_.end() && size <= kLargestRead) {
        const size_t begin = std::min<size_t>(offset, file->second.size());
        const auto from = std::span(file->second).subspan(begin);
        const auto piece = from.first(std::min<size_t>(size, from.size()));
        data.assign(piece.begin(), piece.end());
        data.resize(size);
    }
    return rma::make_message(rma::kDataRead + 1,
                             {padded_word_at(message, kWordAt), client_word_,
                              padded_word_at(message, kMemoryAt), size, 0},
                             data);
}

Bytes RmaHost::write(Message message) {
    const uint32_t word = padded_word_at(message, kWordAt);
    const uint32_t offset = padded_word_at(message, kOffsetAt);
    const uint32_t size = padded_word_at(message, kSizeAt);
    const auto file = files_.find(file_name(word));
    const bool done = message.size() >= rma::kBlockAt && size <= message.size() - rma::kBlockAt &&
                      file != files_.end() && inside(offset, size, file->second.size());
    if (done) {
        const Message block = message.subspan(rma::kBlockAt, size);
        std::copy(block.begin(), block.end(), file->second.begin() + offset);
    }
    return rma::make_message(
        rma::kDataWrite + 1,
        {word, client_word_, padded_word_at(message, kMemoryAt), size, done ? 0u : 1u});
}

}  // namespace sim
