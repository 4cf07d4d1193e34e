// SPDX-License-Identifier: Apache-2.0
#include "sim/dfu_packet.h"

#include <array>
#include <map>
#include <nlohmann/json.hpp>

namespace sim::dfu {

namespace {

constexpr size_t kMagicAt = 4;
constexpr size_t kLengthAt = 8;
constexpr size_t kCrcAt = 12;

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

uint32_t packet_crc(std::span<const uint8_t> packet) {
    const std::array<uint8_t, 4> zero{};
    return crc_of(packet.subspan(kHeaderSize), crc_of(zero, crc_of(packet.first(kCrcAt))));
}

std::vector<uint8_t> make_packet(uint32_t id, std::initializer_list<uint32_t> payload_words,
                                 std::span<const uint8_t> data) {
    std::vector<uint8_t> packet;
    const size_t length = kHeaderSize + 4 * payload_words.size() + data.size();
    append_words(packet, {id, kMagic, static_cast<uint32_t>(length), 0});
    append_words(packet, payload_words);
    packet.insert(packet.end(), data.begin(), data.end());
    put_word(packet, kCrcAt, packet_crc(packet));
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

}  // namespace sim::dfu
