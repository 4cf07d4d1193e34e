// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/chaos_dfu.h"

#include <algorithm>
#include <utility>

#include "sim/dfu_packet.h"

namespace sim {
namespace {

constexpr HostFraming kFraming = {DfuHost::kLongestMessage, 17, 8};
constexpr MessageLayout kLayout = {0, 8, 12, 4};

constexpr uint32_t kAborts = 4;  // one in so many messages that could end the host does

constexpr uint32_t kOddLengths[] = {0, 1, 4095, 65536, 1 << 20, (16 << 20) + 1, 0xffffffff};
constexpr uint32_t kOddOffsets[] = {0, 1, 4095, 1 << 20, 0x7fffffff, 0xfffffff0, 0xffffffff};

}  // namespace

ChaosDfu::ChaosDfu(ChaosContext& context, const FirmwareBundle& firmware)
    : AskingChannel("dfu", kFraming, kLayout, context), firmware_(firmware), host_(firmware) {}

void ChaosDfu::new_host() {
    AskingChannel::new_host();
    host_.begin_anew();
    asked_ = Asked::kNothing;
    was_open_ = false;
    begun_ = false;
    uncertain_ = false;
}

void ChaosDfu::opened() {
    AskingChannel::opened();
    abort_wanted_ = false;
    hang_up_next_ = false;
    if (std::exchange(was_open_, true)) {
        if (!begun_) uncertain_ = true;
        owe(after_error());
    }
}

void ChaosDfu::pump() {
    if (hang_up_next_ && settled()) return hang_up();
    AskingChannel::pump();
}

bool ChaosDfu::may_send(const std::vector<Bytes>& packets, Dice& dice) {
    HostReader host = reader();
    for (const Bytes& message : messages_of(packets, host)) {
        if (message.size() > DfuHost::kLongestMessage) {
            return abort_wanted_ || dice.one_in(kAborts);
        }
    }
    if (host.next_read() <= DfuHost::kLongestMessage || abort_wanted_) return true;
    abort_wanted_ = dice.one_in(kAborts);
    hang_up_next_ = !abort_wanted_;
    return true;
}

void ChaosDfu::message_read(std::span<const uint8_t> message) {
    if (message.size() > DfuHost::kLongestMessage) {
        count("message that ends the host");
        context_.abort_due = true;
        context_.host_ends = true;
        forget_owed();
        return;
    }
    owe(host_.answer_to(message));
}

std::string ChaosDfu::header_error(std::span<const uint8_t> packet) const {
    return dfu::header_error(packet);
}

void ChaosDfu::seen(std::span<const uint8_t> packet) {
    if (word_at(packet, 0) != dfu::kSpecialRequest) return;
    if (word_at(packet, 16) == dfu::kEraseOperation) {
        host_.erase_requested(word_at(packet, 20), word_at(packet, 24));
        asked_ = Asked::kErase;
        begun_ = true;
    } else {
        asked_ = Asked::kState;
    }
}

Bytes ChaosDfu::next_request(Dice& dice) {
    if (asked_ != Asked::kNothing && dice.percent(75)) return answer_to_host(dice);
    const uint32_t kind = dice.below(300);
    if (kind < 60) return dfu::make_packet(dfu::kInfoRequest, {image_id(dice)});
    if (kind < 250) return fragment_request(dice);
    if (kind < 265) return dfu::make_packet(dfu::kImageEndRequest, {image_id(dice)});
    if (kind < 275) return dfu::make_packet(dfu::kUpdateResponse, {});
    if (kind < 285) return dfu::make_packet(dfu::kCancelRequest, {});
    if (kind < 299) return state_answer(dice);
    // After the end of the session the host has nothing to serve any more: not too soon.
    if (!dice.one_in(6)) return fragment_request(dice);
    return dfu::make_packet(dfu::kSessionEndRequest, {});
}

Bytes ChaosDfu::answer_to_host(Dice& dice) {
    const Asked asked = std::exchange(asked_, Asked::kNothing);
    if (asked == Asked::kState) return state_answer(dice);
    const uint32_t code = dice.one_in(5) ? dice.word() : 0;
    return dfu::make_packet(dfu::kSpecialResponse, {dfu::kEraseOperation, code, 0, 0, 0, 0, 0});
}

Bytes ChaosDfu::state_answer(Dice& dice) const {
    const uint32_t code = dice.one_in(20) ? dice.word() : 0;
    const uint32_t image = image_id(dice);
    uint32_t state = dfu::kInit;
    const uint32_t kind = dice.below(100);
    if (kind < 20) state = dfu::kInfo;
    if (kind >= 20 && kind < 45) state = dfu::kOffset;
    if (kind == 45 && dice.one_in(4)) state = dfu::kSessionEnd;
    if (kind >= 46 && kind < 50) state = dfu::kCancelled;
    if (kind >= 50 && kind < 55) state = dice.word();
    if (state == dfu::kInit || state == dfu::kOffset) {
        return dfu::make_packet(dfu::kSpecialResponse,
                                {dfu::kStateOperation, code, dice.word(), state, image,
                                 dice.below(image_size(image) + 1), dice.below(9000)});
    }
    return dfu::make_packet(dfu::kSpecialResponse,
                            {dfu::kStateOperation, code, 0, state, image, 0, 0});
}

Bytes ChaosDfu::fragment_request(Dice& dice) const {
    const uint32_t image = image_id(dice);
    const bool odd = dice.percent(context_.noise / 3);
    const uint32_t offset =
        odd && dice.one_in(2) ? dice.one_of(kOddOffsets) : dice.below(image_size(image) + 1);
    const uint32_t length =
        odd && dice.one_in(2) ? dice.one_of(kOddLengths) : dice.between(1, 8192);
    return dfu::make_packet(dfu::kOffsetRequest, {image, offset, length});
}

uint32_t ChaosDfu::image_id(Dice& dice) const {
    if (dice.one_in(20)) return dice.word();
    return firmware_.images[dice.below(static_cast<uint32_t>(firmware_.images.size()))].id;
}

uint32_t ChaosDfu::image_size(uint32_t id) const {
    for (const Image& image : firmware_.images) {
        if (image.id == id) return static_cast<uint32_t>(image.data.size());
    }
    return 0;
}

}  // namespace sim
