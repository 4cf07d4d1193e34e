// SPDX-License-Identifier: Apache-2.0
#include "sim/rma_packet.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

namespace sim::rma {

namespace {

constexpr size_t kCrcAt = 0;
constexpr size_t kLengthAt = 4;
constexpr size_t kCommandAt = 8;

uint32_t message_crc(std::span<const uint8_t> message) {
    return crc_of(message.subspan(kLengthAt));
}

// Puts in the length and CRC that the message must have.
void seal(Bytes& message) {
    put_word(message, kLengthAt, static_cast<uint32_t>(message.size()));
    put_word(message, kCrcAt, message_crc(message));
}

}  // namespace

std::string command_name(uint32_t command) {
    static const std::map<uint32_t, const char*> names = {{kConnect, "CONNECT"},
                                                          {kDisconnect, "DISCONNECT"},
                                                          {kDataRead, "DATA_READ"},
                                                          {kDataWrite, "DATA_WRITE"}};
    const auto request = names.find(command);
    if (request != names.end()) return request->second;
    const auto response = names.find(command - 1);
    if (response != names.end()) return std::string(response->second) + " response";
    return "command " + std::to_string(command);
}

Bytes make_message(uint32_t command, std::initializer_list<uint32_t> payload_words,
                   std::span<const uint8_t> data) {
    Bytes message;
    append_words(message, {0, 0, command});
    append_words(message, payload_words);
    message.insert(message.end(), data.begin(), data.end());
    seal(message);
    return message;
}

std::string header_error(std::span<const uint8_t> message) {
    if (message.size() < kHeaderSize) {
        return "remote memory message of " + std::to_string(message.size()) +
               " bytes: shorter than its header of " + std::to_string(kHeaderSize);
    }
    const std::string name = command_name(command_of(message));
    const uint32_t length = word_at(message, kLengthAt);
    if (length != message.size()) return differs(name + ": total length", message.size(), length);
    const uint32_t crc = word_at(message, kCrcAt);
    const uint32_t right = message_crc(message);
    return crc == right ? "" : differs(name + ": CRC", hex(right), hex(crc));
}

uint32_t command_of(std::span<const uint8_t> message) {
    return word_at(message, kCommandAt);
}

nlohmann::json describe(std::span<const uint8_t> message) {
    static const std::map<uint32_t, std::vector<const char*>> fields = {
        {kConnect, {"", "memory", "second", "size"}},
        {kConnect + 1, {"", "", "memory"}},
        {kDisconnect, {"", "memory"}},
        {kDisconnect + 1, {"", "", "memory"}},
        {kDataRead, {"word", "memory", "offset", "block"}},
        {kDataRead + 1, {"word", "", "memory", "block"}},
        {kDataWrite, {"word", "memory", "offset", "block"}},
        {kDataWrite + 1, {"word", "", "memory", "block", "result"}},
    };
    const uint32_t command = command_of(message);
    nlohmann::json description = {{"name", command_name(command)}, {"length", message.size()}};
    const auto entry = fields.find(command);
    if (entry == fields.end()) return description;
    size_t at = kHeaderSize;
    for (const std::string name : entry->second) {
        if (!name.empty()) description[name] = word_at(message, at);
        at += 4;
    }
    return description;
}

// cppcheck-suppress constParameter ; it is written to
void spoil_crc(Bytes& message) {
    put_word(message, kCrcAt, ~word_at(message, kCrcAt));
}

void cut_block(Bytes& message, size_t bytes) {
    message.resize(message.size() - std::min(bytes, message.size() - kBlockAt));
    seal(message);
}

}  // namespace sim::rma
