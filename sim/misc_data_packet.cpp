// SPDX-License-Identifier: Apache-2.0
#include "sim/misc_data_packet.h"

#include <nlohmann/json.hpp>

namespace sim::misc {

namespace {

constexpr size_t kStatusAt = 16;
constexpr size_t kLimitAt = 20;
constexpr uint32_t kCrcSize = 4;

// Length of the whole packet, and the words of the header that its kind leaves no choice.
std::string fields_error(std::span<const uint8_t> packet, size_t length, uint32_t sequence) {
    const Header header = header_of(packet);
    const std::string name = kind_name(header.kind);
    if (packet.size() != length) return differs(name + ": length", length, packet.size());
    if (header.sequence != sequence) {
        return differs(name + ": word at 12", sequence, header.sequence);
    }
    if (header.type >= kTypes) {
        return differs(name + ": type", "0 or 1", std::to_string(header.type));
    }
    return "";
}

std::string finish_error(std::span<const uint8_t> packet) {
    const Header header = header_of(packet);
    if (header.type != 0) return differs("finish: type", 0, header.type);
    if (header.size != 0) return differs("finish: word at 8", 0, header.size);
    return fields_error(packet, kHeaderSize, 0);
}

}  // namespace

Header header_of(std::span<const uint8_t> packet) {
    return {word_at(packet, 0), word_at(packet, 4), word_at(packet, 8), word_at(packet, 12)};
}

std::string kind_name(uint32_t kind) {
    switch (kind) {
        case kStart:
            return "start";
        case kData:
            return "data";
        case kLastData:
            return "last data";
        case kCrc:
            return "CRC";
        case kFinish:
            return "finish";
        default:
            return "kind " + std::to_string(kind);
    }
}

std::string shape_error(std::span<const uint8_t> packet) {
    if (packet.size() < kHeaderSize) {
        return "misc data packet of " + std::to_string(packet.size()) +
               " bytes: shorter than its header of " + std::to_string(kHeaderSize);
    }
    const Header header = header_of(packet);
    switch (header.kind) {
        case kStart:
            return fields_error(packet, kHeaderSize, 0);
        case kData:
        case kLastData:
            return fields_error(packet, kHeaderSize + size_t{header.size}, header.sequence);
        case kCrc:
            if (header.size != kCrcSize) return differs("CRC: word at 8", kCrcSize, header.size);
            return fields_error(packet, kHeaderSize + kCrcSize, 0);
        case kFinish:
            return finish_error(packet);
        default:
            return "misc data packet: " +
                   differs("kind", "0, 1, 2, 4 or 5", std::to_string(header.kind));
    }
}

nlohmann::json describe(std::span<const uint8_t> packet) {
    const Header header = header_of(packet);
    nlohmann::json description = {{"name", kind_name(header.kind)}, {"length", packet.size()}};
    if (header.kind != kFinish) description["type"] = header.type;
    if (header.kind == kStart || header.kind == kData || header.kind == kLastData) {
        description["size"] = header.size;
    }
    if (header.kind == kData || header.kind == kLastData) {
        description["sequence"] = header.sequence;
    }
    return description;
}

Bytes make_answer(std::span<const uint8_t> packet, uint32_t status, uint32_t limit) {
    const Header header = header_of(packet);
    Bytes answer;
    append_words(answer, {header.kind, header.type, header.size, header.sequence, status, limit});
    return answer;
}

nlohmann::json describe_answer(std::span<const uint8_t> answer) {
    return {{"name", "answer to " + kind_name(header_of(answer).kind)},
            {"length", answer.size()},
            {"status", static_cast<int32_t>(word_at(answer, kStatusAt))},
            {"limit", word_at(answer, kLimitAt)}};
}

}  // namespace sim::misc
