// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/dfu_host.h"

#include <algorithm>

#include "sim/dfu_packet.h"

namespace sim {

using Message = std::span<const uint8_t>;

namespace {

// Of a message that asks for an image, or for a piece of one.
constexpr size_t kImageAt = 16;
constexpr size_t kOffsetAt = 20;
constexpr size_t kLengthAt = 24;
// Of the answer to a special operation.
constexpr size_t kOperationAt = 16;
constexpr size_t kCodeAt = 20;
constexpr size_t kStateAt = 28;
constexpr size_t kStateImageAt = 32;
constexpr size_t kStateOffsetAt = 36;
constexpr size_t kStateLengthAt = 40;

constexpr uint32_t kFlashImageId = 1;
constexpr uint32_t kLongestFragment = 16 * 1024 * 1024;

OwedPacket owed(uint32_t id, std::initializer_list<uint32_t> words) {
    return {{dfu::make_packet(id, words)}};
}

Bytes state_query() {
    return dfu::make_packet(dfu::kSpecialRequest, {dfu::kStateOperation, 0, 0});
}

}  // namespace

void DfuHost::begin_anew() {
    requested_.clear();
    images_loaded_ = true;
    finished_ = false;
}

std::optional<OwedPacket> DfuHost::answer_to(Message received) {
    Bytes message(received.begin(), received.end());
    message.resize(kLongestMessage);  // what a short message leaves out reads as zero
    switch (word_at(message, 0)) {
        case dfu::kInfoRequest:
            return info(word_at(message, kImageAt));
        case dfu::kOffsetRequest:
            return fragment(word_at(message, kImageAt), word_at(message, kOffsetAt),
                            word_at(message, kLengthAt));
        case dfu::kSessionEndRequest:
            return session_end();
        case dfu::kSpecialResponse:
            return special_response(message);
        default:
            return {};
    }
}

std::optional<OwedPacket> DfuHost::after_error() const {
    if (finished_) return {};
    OwedPacket packet = {{state_query()}};
    packet.on_error = true;
    return packet;
}

void DfuHost::erase_requested(uint32_t offset, uint32_t size) {
    requested_.push_back({"", offset, size});
}

void DfuHost::sent(const OwedPacket& packet) {
    if (packet.follows == OwedPacket::Follows::kSession) finished_ = false;
    if (packet.follows == OwedPacket::Follows::kSessionEnd) finished_ = true;
}

std::optional<OwedPacket> DfuHost::special_response(Message message) {
    const uint32_t operation = word_at(message, kOperationAt);
    if (operation == dfu::kEraseOperation) return next_erase();
    if (operation != dfu::kStateOperation || word_at(message, kCodeAt) != 0) return {};
    return act_on_state(message);
}

std::optional<OwedPacket> DfuHost::act_on_state(Message message) {
    const uint32_t image = word_at(message, kStateImageAt);
    switch (word_at(message, kStateAt)) {
        case dfu::kInit: {
            if (image_bytes(kFlashImageId).empty()) return {};
            OwedPacket packet = owed(dfu::kUpdateRequest, {1, 0, 0, 0x20474D49, 0x54445055});
            packet.follows = OwedPacket::Follows::kSession;
            return packet;
        }
        case dfu::kInfo:
            return info(image);
        case dfu::kOffset:
            return fragment(image, word_at(message, kStateOffsetAt),
                            word_at(message, kStateLengthAt));
        case dfu::kSessionEnd:
            return session_end();
        default:
            return {};
    }
}

// Which one comes next is the host's own business here: after a lost request it knows better.
OwedPacket DfuHost::next_erase() const {
    OwedPacket packet = {{state_query()}};
    if (!images_loaded_) return packet;
    for (const EraseRange& range : firmware_.erase_ranges) {
        const bool before =
            std::any_of(requested_.begin(), requested_.end(), [&range](const EraseRange& other) {
                return other.offset == range.offset && other.size == range.size;
            });
        if (before) continue;
        packet.allowed.push_back(dfu::make_packet(
            dfu::kSpecialRequest, {dfu::kEraseOperation, range.offset, range.size}));
    }
    return packet;
}

OwedPacket DfuHost::info(uint32_t image) const {
    return owed(dfu::kInfoResponse, {image, static_cast<uint32_t>(image_bytes(image).size()), 0});
}

// None: the host refuses to serve so much at a time.
std::optional<OwedPacket> DfuHost::fragment(uint32_t image, uint32_t offset,
                                            uint32_t length) const {
    const Message bytes = image_bytes(image);
    if (length == 0 || offset >= bytes.size()) {
        return owed(dfu::kOffsetResponse, {image, offset, length});
    }
    if (length > kLongestFragment) return {};
    const Message piece = bytes.subspan(offset, std::min<size_t>(length, bytes.size() - offset));
    Bytes data(piece.begin(), piece.end());
    data.resize(length);
    return OwedPacket{{dfu::make_packet(dfu::kOffsetResponse, {image, offset, length}, data)}};
}

OwedPacket DfuHost::session_end() {
    images_loaded_ = false;
    OwedPacket packet = owed(dfu::kSessionEndResponse, {0, 0, 0});
    packet.follows = OwedPacket::Follows::kSessionEnd;
    return packet;
}

// None of an image that the host has not, or has no more.
Message DfuHost::image_bytes(uint32_t image) const {
    for (const Image& candidate : firmware_.images) {
        if (images_loaded_ && candidate.id == image) return candidate.data;
    }
    return {};
}

}  // namespace sim
