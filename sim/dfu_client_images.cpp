// SPDX-License-Identifier: Apache-2.0
// The download itself: image after image, fragment after fragment.
#include <algorithm>
#include <array>

#include "sim/dfu_client.h"
#include "sim/event.h"

namespace sim {

using dfu::message_name;
using dfu::word_at;

namespace {

constexpr size_t kAnswerSize = 28;  // header and three words
constexpr uint32_t kFlashImageId = 1;

}  // namespace

void DfuClient::update_request(std::span<const uint8_t> packet) {
    // The text IMG UPDT.
    if (!check_words(packet, 36, {1, 0, 0, 0x20474D49, 0x54445055})) return;
    if (!init_reported_) {
        reporter_.fail("MG_UPDT_REQ without a state query that was answered INIT before it");
        return;
    }
    bool skipped_erases = false;
    for (size_t i = 0; i < range_requested_.size(); ++i) {
        if (range_requested_[i] || erases_lost_) continue;
        reporter_.fail("MG_UPDT_REQ before the erase of partition " +
                       firmware_.erase_ranges[i].name);
        skipped_erases = true;
    }
    erases_lost_ = erases_lost_ || skipped_erases;
    init_reported_ = false;
    status_.phase = Phase::kImages;
    reporter_.emit(EventKind::kPhase, {{"phase", "session begins"}});
    send_message({}, dfu::kUpdateResponse);
    image_index_ = 0;
    begin_image();
}

void DfuClient::ask(const Request& request) {
    outstanding_ = request;
    switch (request.id) {
        case dfu::kInfoRequest:
            send_message({request.image}, request.id);
            hangs_up(Fault::kHangUpAtInfo);
            return;
        case dfu::kOffsetRequest:
            if (faults_.strikes(Fault::kCancel)) return cancel();
            send_message({request.image, request.offset, request.length}, request.id);
            hangs_up(Fault::kHangUpAtFragment);
            return;
        default:
            send_message({}, request.id);
            hangs_up(Fault::kHangUpAtSessionEnd);
    }
}

void DfuClient::cancel() {
    outstanding_ = {0};
    cancelled_ = true;
    reporter_.emit(EventKind::kPhase, {{"phase", "session cancelled"}});
    send_message({}, dfu::kCancelRequest);
}

void DfuClient::begin_image() {
    if (image_index_ == firmware_.images.size()) return ask({dfu::kSessionEndRequest});
    status_.images[image_index_].done = 0;
    reporter_.emit(EventKind::kPhase,
                   {{"phase", "image"}, {"image", image().id}, {"name", image().name}});
    const auto unknown = faults_.strikes(Fault::kUnknownImage);
    if (unknown) return ask({dfu::kInfoRequest, *unknown});
    ask_for_image();
}

void DfuClient::ask_for_image() {
    ask({dfu::kInfoRequest, image().id});
}

// 0 where there is none.
uint32_t DfuClient::image_size(uint32_t id) const {
    for (const Image& image : firmware_.images) {
        if (image.id == id) return static_cast<uint32_t>(image.data.size());
    }
    return 0;
}

// An answer needs the request that it answers, and repeats its words.
bool DfuClient::answers_request(std::span<const uint8_t> packet, uint32_t request_id) {
    if (outstanding_.id != request_id) {
        const std::string outstanding =
            outstanding_.id == 0 ? "no request" : message_name(outstanding_.id);
        reporter_.fail(message_name(word_at(packet, 0)) + " while " + outstanding +
                       " is outstanding");
        return false;
    }
    return true;
}

void DfuClient::info_response(std::span<const uint8_t> packet) {
    if (!answers_request(packet, dfu::kInfoRequest)) return;
    const uint32_t id = outstanding_.image;
    if (!check_words(packet, kAnswerSize, {id, image_size(id), 0})) return;
    outstanding_ = {0};
    if (id != image().id) {
        reporter_.emit(EventKind::kPhase, {{"phase", "unknown image"}, {"image", id}});
        return ask_for_image();
    }
    erase_own_ranges(image());
    next_fragment();
}

Flash& DfuClient::bank(const Image& image) {
    if (image.in_table) return flash_;
    return image.id == kFlashImageId ? flash_image_bank_ : partition_1_bank_;
}

// What the host is not told to erase, what it asked for in vain and what it has left out, the
// co-processor erases itself before it writes an image there.
void DfuClient::erase_own_ranges(const Image& image) {
    Flash& flash = bank(image);
    uint64_t at = image.offset;
    const uint64_t end = at + image.data.size();
    while (at < end) {
        uint64_t next = end;
        uint64_t host_end = 0;
        for (size_t i = 0; image.in_table && i < range_requested_.size(); ++i) {
            if (range_refused_[i] || (erases_lost_ && !range_requested_[i])) continue;
            const EraseRange& range = firmware_.erase_ranges[i];
            const uint64_t range_end = uint64_t{range.offset} + range.size;
            if (range.offset <= at && at < range_end) host_end = std::max(host_end, range_end);
            if (range.offset > at) next = std::min<uint64_t>(next, range.offset);
        }
        if (host_end > at) {
            at = host_end;
        } else {
            flash.erase(at, next - at);
            at = next;
        }
    }
}

void DfuClient::next_fragment() {
    const uint64_t done = status_.images[image_index_].done;
    if (done < image().data.size()) {
        const uint32_t length = std::max<uint32_t>(behaviour_.fragment_size, 1);
        return ask({dfu::kOffsetRequest, image().id, static_cast<uint32_t>(done), length});
    }
    send_message({image().id}, dfu::kImageEndRequest);
    reporter_.emit(EventKind::kPhase,
                   {{"phase", "image done"}, {"image", image().id}, {"name", image().name}});
    ++image_index_;
    begin_image();
}

void DfuClient::offset_response(std::span<const uint8_t> packet) {
    if (!answers_request(packet, dfu::kOffsetRequest)) return;
    const Request request = outstanding_;
    if (!check_words(packet, kAnswerSize + size_t{request.length},
                     {request.image, request.offset, request.length})) {
        return;
    }
    const auto data = packet.subspan(kAnswerSize);
    const size_t length = std::min(data.size(), image().data.size() - request.offset);
    const auto past_end = data.subspan(length);
    const auto odd = std::find_if(past_end.begin(), past_end.end(), [](uint8_t b) { return b; });
    if (odd != past_end.end()) {
        reporter_.fail("image " + std::to_string(request.image) + ": byte " +
                       std::to_string(odd - past_end.begin()) + " past its end expected 0, got " +
                       std::to_string(*odd));
    }
    outstanding_ = {0};
    write_fragment(data.first(length));
}

void DfuClient::write_fragment(std::span<const uint8_t> data) {
    ImageProgress& progress = status_.images[image_index_];
    const uint64_t address = image().offset + progress.done;
    if (!bank(image()).write(address, data)) {
        reporter_.fail("image " + std::to_string(image().id) + ": write of " +
                       std::to_string(data.size()) + " bytes at flash offset " +
                       dfu::hex(static_cast<uint32_t>(address)) + ", which is not erased");
    }
    // The bytes count when the flash has taken them.
    const size_t length = data.size();
    work(length, false, [this, length] {
        status_.images[image_index_].done += length;
        next_fragment();
    });
}

void DfuClient::session_end_response(std::span<const uint8_t> packet) {
    if (!answers_request(packet, dfu::kSessionEndRequest)) return;
    if (!check_words(packet, kAnswerSize, {0, 0, 0})) return;
    outstanding_ = {0};
    next_erase_ = 0;
    finished_once_ = true;
    status_.phase = Phase::kFinished;
    reporter_.emit(EventKind::kPhase, {{"phase", "session ends"}});
}

bool DfuClient::flash_matches(std::string* why) const {
    for (const Image& image : firmware_.images) {
        const Flash& flash = image.in_table              ? flash_
                             : image.id == kFlashImageId ? flash_image_bank_
                                                         : partition_1_bank_;
        if (flash.matches(image.offset, image.data, why)) continue;
        if (why)
            *why = "flash, image " + std::to_string(image.id) + " (" + image.name + "): " + *why;
        return false;
    }
    return true;
}

}  // namespace sim
