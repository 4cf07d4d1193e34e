// SPDX-License-Identifier: Apache-2.0
#include "fuzz/dfu_model.h"

#include <algorithm>
#include <cstring>

#include "fwupdater/dfu_messages.h"

using fuzz::Bytes;
using fuzz::must;
using fuzz::word_at;

namespace {

// Of the partition table in dfu.cpp: offset and size.
constexpr uint32_t kErasable[][2] = {{4096, 512}, {8192, 1024}};

// A longer one is not cut out of an image.
constexpr uint32_t kLongestFragment = 16 * 1024 * 1024;

constexpr uint32_t kMagic = 0x0A0B0C0D;
constexpr const char* kUpdateText = "IMG UPDT";

void check_header(std::span<const uint8_t> message, uint32_t expected_id) {
    must(message.size() >= 28, "a message of %zu bytes", message.size());
    const uint32_t id = word_at(message, 0);
    must(id == expected_id, "message %u is sent instead of %u", id, expected_id);
    must(word_at(message, 4) == kMagic, "wrong magic in message %u", id);
    must(word_at(message, 8) == message.size(), "message %u of %zu bytes says %u", id,
         message.size(), word_at(message, 8));
    const uint8_t no_crc[4] = {};
    const uint32_t crc = fuzz::crc_of({message.first(12), no_crc, message.subspan(16)});
    must(word_at(message, 12) == crc, "wrong CRC in message %u", id);
}

}  // namespace

void DownloadModel::load_images(bool has_table) {
    is_loaded_ = has_table;
    next_to_erase_ = 0;
}

void DownloadModel::erase() {
    if (begins_to_continue()) {
        erase_next();
    }
}

void DownloadModel::ask_state() {
    if (begins_to_continue()) {
        expect({dfu::DFU_SPCL_OPERATION_REQ, {dfu::SPCL_OP_GET_DFU_STATE, 0, 0}});
    }
}

void DownloadModel::channel_fails() {
    if (!is_finished_) {
        ask_state();
    }
}

void DownloadModel::receive(std::span<const uint8_t> packet) {
    switch (word_at(packet, 0)) {
        case dfu::IMG_INFO_REQ:
            tell_size(word_at(packet, 16));
            break;
        case dfu::IMG_OFFSET_REQ:
            send_fragment(word_at(packet, 16), word_at(packet, 20), word_at(packet, 24));
            break;
        case dfu::SESSION_END_REQ:
            end_session();
            break;
        case dfu::DFU_SPCL_OPERATION_RESP:
            if (word_at(packet, 16) == dfu::SPCL_OP_RAW_FLASH_ERASE) {
                erase_next();
            } else if (word_at(packet, 16) == dfu::SPCL_OP_GET_DFU_STATE &&
                       word_at(packet, 20) == 0 && continues_) {
                continue_from(packet);
            }
            break;
        default:
            break;
    }
}

void DownloadModel::take(std::span<const uint8_t> message) {
    must(!expected_.empty(), "message %u is not asked for", word_at(message, 0));
    const Answer expected = expected_.front();
    expected_.pop_front();
    check_header(message, expected.id);
    for (size_t index = 0; index < std::size(expected.words); ++index) {
        const uint32_t word = word_at(message, 16 + 4 * index);
        must(word == expected.words[index], "word %zu of message %u is %u, not %u", index,
             expected.id, word, expected.words[index]);
    }
    const std::span<const uint8_t> rest = message.subspan(28);
    must(rest.size() == expected.size, "message %u ends in %zu bytes, not %zu", expected.id,
         rest.size(), expected.size);
    if (expected.id == dfu::IMG_OFFSET_RESP && !rest.empty()) {
        check_fragment(rest, expected.words[0], expected.words[1]);
    } else if (!rest.empty()) {
        must(fuzz::text_of(rest) == kUpdateText, "another text in message %u", expected.id);
    }
}

void DownloadModel::was_sent(std::span<const uint8_t> message) {
    const uint32_t id = word_at(message, 0);
    if (id == dfu::MG_UPDT_REQ || id == dfu::SESSION_END_RESP) {
        is_finished_ = id == dfu::SESSION_END_RESP;
        done_property = is_finished_ ? "1" : "0";
    }
}

void DownloadModel::finish_step() const {
    must(expected_.empty(), "message %u is not sent", expected_.empty() ? 0 : expected_.front().id);
}

void DownloadModel::expect(const Answer& answer) {
    if (has_channel) {
        expected_.push_back(answer);
    }
}

bool DownloadModel::begins_to_continue() {
    continues_ |= has_channel;
    return has_channel;
}

Bytes DownloadModel::image(uint32_t id) const {
    const auto* const file = std::find_if(std::begin(kImages), std::end(kImages),
                                          [id](const ImageFile& each) { return each.id == id; });
    return is_loaded_ && file != std::end(kImages) ? fuzz::pattern(file->size) : Bytes();
}

void DownloadModel::erase_next() {
    if (is_loaded_ && next_to_erase_ < std::size(kErasable)) {
        const auto& [offset, size] = kErasable[next_to_erase_++];
        expect({dfu::DFU_SPCL_OPERATION_REQ, {dfu::SPCL_OP_RAW_FLASH_ERASE, offset, size}});
    } else if (continues_) {
        expect({dfu::DFU_SPCL_OPERATION_REQ, {dfu::SPCL_OP_GET_DFU_STATE, 0, 0}});
    }
}

void DownloadModel::tell_size(uint32_t id) {
    expect({dfu::IMG_INFO_RESP, {id, static_cast<uint32_t>(image(id).size()), 0}});
}

void DownloadModel::send_fragment(uint32_t id, uint32_t offset, uint32_t length) {
    const bool is_inside = offset < image(id).size();
    if (!is_inside || length <= kLongestFragment) {
        expect({dfu::IMG_OFFSET_RESP, {id, offset, length}, is_inside ? length : 0});
    }
}

void DownloadModel::end_session() {
    expect({dfu::SESSION_END_RESP});
    drop_images();
}

void DownloadModel::continue_from(std::span<const uint8_t> packet) {
    switch (static_cast<DFUState>(word_at(packet, 28))) {
        case DFUState::INIT:
            if (!image(1).empty()) {
                expect({dfu::MG_UPDT_REQ, {1, 0, 0}, std::strlen(kUpdateText)});
            }
            break;
        case DFUState::INFO_REQ:
            tell_size(word_at(packet, 32));
            break;
        case DFUState::OFFSET_REQ:
            send_fragment(word_at(packet, 32), word_at(packet, 36), word_at(packet, 40));
            break;
        case DFUState::SESSION_END_REQ:
            end_session();
            break;
        case DFUState::CANCEL_UPDATE_REQ:
            break;
    }
}

// Not empty; then it begins inside the image.
void DownloadModel::check_fragment(std::span<const uint8_t> fragment, uint32_t id,
                                   uint32_t offset) const {
    const Bytes whole = image(id);
    const size_t inside = std::min(fragment.size(), whole.size() - offset);
    must(std::memcmp(fragment.data(), whole.data() + offset, inside) == 0,
         "%zu bytes at %u of image %u are sent wrong", inside, offset, id);
    must(fuzz::all_zero(fragment.subspan(inside)), "what is behind the image is not zero");
}
