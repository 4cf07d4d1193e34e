// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/dfu_messages.h"

#include <algorithm>
#include <string_view>

#include "wire/crc32.h"
#include "wire/little_endian.h"

namespace dfu {
namespace {

constexpr size_t kCrcOffset = 12;
constexpr size_t kFirstWord = 16;
constexpr size_t kSecondWord = 20;
constexpr size_t kThirdWord = 24;

}  // namespace

const char* received_message_name(uint32_t command_id) {
    switch (command_id) {
        case MG_UPDT_REQ:
            return "MG_UPDT_REQ";
        case MG_UPDT_RESP:
            return "MG_UPDT_RESP";
        case IMG_INFO_REQ:
            return "IMG_INFO_REQ";
        case IMG_INFO_RESP:
            return "IMG_INFO_RESP";
        case IMG_OFFSET_REQ:
            return "IMG_OFFSET_REQ";
        case IMG_OFFSET_RESP:
            return "IMG_OFFSET_RESP";
        case CANCEL_UPDT_REQ:
            return "CANCEL_UPDT_REQ";
        case CANCEL_UPDT_RESP:
            return "CANCEL_UPDT_RESP";
        case IMG_UPDT_END_REQ:
            return "IMG_UPDT_END_REQ";
        case IMG_UPDT_END_RESP:
            return "IMG_UPDT_END_RESP";
        case SESSION_END_REQ:
            return "SESSION_END_REQ";
        case SESSION_END_RESP:
            return "SESSION_END_RESP";
        case DFU_SPCL_OPERATION_RESP:
            return "DFU_SPCL_OPERATION_RESP";
        default:
            return nullptr;
    }
}

const char* state_name(DFUState state) {
    switch (state) {
        case DFUState::INIT:
            return "INIT";
        case DFUState::INFO_REQ:
            return "INFO_REQ";
        case DFUState::OFFSET_REQ:
            return "OFFSET_REQ";
        case DFUState::SESSION_END_REQ:
            return "SESSION_END_REQ";
        case DFUState::CANCEL_UPDATE_REQ:
            return "CANCEL_UPDATE_REQ";
    }
    return "";
}

ReceivedMessage::ReceivedMessage(std::span<const uint8_t> bytes) {
    std::copy_n(bytes.begin(), std::min(bytes.size(), buffer_.size()), buffer_.begin());
}

uint32_t ReceivedMessage::command_id() const {
    return wire::word_at(buffer_, 0);
}
uint32_t ReceivedMessage::image_id() const {
    return wire::word_at(buffer_, kFirstWord);
}
uint32_t ReceivedMessage::offset() const {
    return wire::word_at(buffer_, kSecondWord);
}
uint32_t ReceivedMessage::fragment_len() const {
    return wire::word_at(buffer_, kThirdWord);
}
uint32_t ReceivedMessage::response_code() const {
    return wire::word_at(buffer_, kSecondWord);
}

dfu_spcl_cmd_response ReceivedMessage::special_response() const {
    wire::Reader reader(buffer_);
    reader.skip(kHeaderSize);
    dfu_spcl_cmd_response response{};
    response.operation = reader.u32();
    response.response_code = reader.u32();
    response.reserved = reader.u32();
    response.dfu_state = reader.u32();
    response.image_id = reader.u32();
    response.offset = reader.u32();
    response.fragment_len = reader.u32();
    return response;
}

ThreeWords three_words(uint32_t first, uint32_t second, uint32_t third) {
    ThreeWords words{};
    wire::put_word_at(words, 0, first);
    wire::put_word_at(words, 4, second);
    wire::put_word_at(words, 8, third);
    return words;
}

std::array<uint8_t, 20> update_request() {
    constexpr std::string_view kText = "IMG UPDT";
    std::array<uint8_t, 20> payload{};
    wire::put_word_at(payload, 0, 1);
    std::copy(kText.begin(), kText.end(), payload.begin() + 12);
    return payload;
}

Payload fragment_payload(const ThreeWords& fields, std::span<const uint8_t> image, uint32_t offset,
                         uint32_t fragment_len) {
    Payload payload{.length = static_cast<uint32_t>(fields.size()),
                    .fields = fields,
                    .image_bytes = {},
                    .zero_fill = 0};
    if (fragment_len != 0 && offset < image.size()) {
        const size_t available = std::min<size_t>(fragment_len, image.size() - offset);
        payload.length = static_cast<uint32_t>(uint64_t{payload.length} + fragment_len);
        payload.image_bytes = image.subspan(offset, available);
        payload.zero_fill = fragment_len - available;
    }
    return payload;
}

uint32_t build_message(std::vector<uint8_t>& message, uint32_t command_id, const Payload& payload) {
    const size_t size = kHeaderSize + payload.fields.size() + payload.image_bytes.size();
    std::array<uint8_t, kHeaderSize> header{};
    wire::put_word_at(header, 0, command_id);
    wire::put_word_at(header, 4, DFU_MAGIC);
    wire::put_word_at(header, 8, kHeaderSize + payload.length);
    message.clear();
    message.reserve(size + payload.zero_fill);
    wire::Writer(message).bytes(header).bytes(payload.fields).bytes(payload.image_bytes);
    message.resize(size + payload.zero_fill);
    const uint32_t crc = wire::crc32(message);
    wire::put_word_at(message, kCrcOffset, crc);
    return crc;
}

uint32_t progress_percentage(uint32_t offset, uint32_t size) {
    return size == 0 ? 0 : static_cast<uint32_t>(uint64_t{offset} * 100) / size;
}

}  // namespace dfu
