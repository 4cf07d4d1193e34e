// SPDX-License-Identifier: Apache-2.0
#include "sim/dfu_packet.h"

#include <zlib.h>

#include <array>
#include <cstdio>
#include <map>

namespace sim::dfu {

namespace {

constexpr size_t kMagicAt = 4;
constexpr size_t kLengthAt = 8;
constexpr size_t kCrcAt = 12;

void append_word(std::vector<uint8_t>& bytes, uint32_t word) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<uint8_t>(word >> shift));
}

}  // namespace

std::string message_name(uint32_t id) {
    static const std::array<const char*, 15> names = {nullptr,
                                                      "MG_UPDT_REQ",
                                                      "MG_UPDT_RESP",
                                                      "IMG_INFO_REQ",
                                                      "IMG_INFO_RESP",
                                                      "IMG_OFFSET_REQ",
                                                      "IMG_OFFSET_RESP",
                                                      "CANCEL_UPDT_REQ",
                                                      "CANCEL_UPDT_RESP",
                                                      "IMG_UPDT_END_REQ",
                                                      "IMG_UPDT_END_RESP",
                                                      "SESSION_END_REQ",
                                                      "SESSION_END_RESP",
                                                      "DFU_SPCL_OPERATION_REQ",
                                                      "DFU_SPCL_OPERATION_RESP"};
    if (id == 0 || id >= names.size()) return "message " + std::to_string(id);
    return names[id];
}

const char* state_name(State state) {
    switch (state) {
        case kInit:
            return "INIT";
        case kInfo:
            return "INFO_REQ";
        case kOffset:
            return "OFFSET_REQ";
        case kSessionEnd:
            return "SESSION_END_REQ";
        case kCancelled:
            return "CANCEL_UPDATE_REQ";
    }
    return "?";
}

uint32_t word_at(std::span<const uint8_t> bytes, size_t at) {
    if (at > bytes.size() || bytes.size() - at < 4) return 0;
    uint32_t word = 0;
    for (size_t i = 4; i-- > 0;) word = word << 8 | bytes[at + i];
    return word;
}

uint32_t packet_crc(std::span<const uint8_t> packet) {
    const std::array<uint8_t, 4> zero{};
    uLong crc = crc32(0, packet.data(), kCrcAt);
    crc = crc32(crc, zero.data(), zero.size());
    const auto payload = packet.subspan(kHeaderSize);
    // zlib takes a null pointer as a request for the initial value.
    if (!payload.empty()) crc = crc32(crc, payload.data(), static_cast<uInt>(payload.size()));
    return static_cast<uint32_t>(crc);
}

std::vector<uint8_t> make_packet(uint32_t id, std::initializer_list<uint32_t> payload_words) {
    std::vector<uint8_t> packet;
    append_word(packet, id);
    append_word(packet, kMagic);
    append_word(packet, static_cast<uint32_t>(kHeaderSize + 4 * payload_words.size()));
    append_word(packet, 0);
    for (uint32_t word : payload_words) append_word(packet, word);
    const uint32_t crc = packet_crc(packet);
    for (size_t i = 0; i < 4; ++i) packet[kCrcAt + i] = static_cast<uint8_t>(crc >> (8 * i));
    return packet;
}

std::string header_error(std::span<const uint8_t> packet) {
    if (packet.size() < kHeaderSize) {
        return "packet of " + std::to_string(packet.size()) +
               " bytes: shorter than its header of " + std::to_string(kHeaderSize);
    }
    const std::string name = message_name(word_at(packet, 0));
    if (word_at(packet, kMagicAt) != kMagic) {
        return name + ": magic expected " + hex(kMagic) + ", got " + hex(word_at(packet, kMagicAt));
    }
    if (word_at(packet, kLengthAt) != packet.size()) {
        return name + ": total length expected " + std::to_string(packet.size()) + ", got " +
               std::to_string(word_at(packet, kLengthAt));
    }
    if (word_at(packet, kCrcAt) != packet_crc(packet)) {
        return name + ": CRC expected " + hex(packet_crc(packet)) + ", got " +
               hex(word_at(packet, kCrcAt));
    }
    return "";
}

nlohmann::json describe(std::span<const uint8_t> packet) {
    static const std::map<uint32_t, std::vector<const char*>> fields = {
        {kInfoRequest, {"image"}},
        {kInfoResponse, {"image", "size"}},
        {kOffsetRequest, {"image", "offset", "fragment"}},
        {kOffsetResponse, {"image", "offset", "fragment"}},
        {kImageEndRequest, {"image"}},
        {kSpecialRequest, {"operation", "offset", "size"}},
        {kSpecialResponse,
         {"operation", "code", "reserved", "state", "image", "offset", "fragment"}},
    };
    const uint32_t id = word_at(packet, 0);
    nlohmann::json description = {{"name", message_name(id)}, {"length", packet.size()}};
    const auto entry = fields.find(id);
    if (entry == fields.end()) return description;
    size_t at = kHeaderSize;
    for (const char* name : entry->second) {
        description[name] = word_at(packet, at);
        at += 4;
    }
    return description;
}

std::string hex(uint32_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08x", value);
    return text.data();
}

}  // namespace sim::dfu
