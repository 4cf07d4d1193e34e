// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/chaos_misc.h"

#include <algorithm>
#include <cerrno>

namespace sim {
namespace {

constexpr uint32_t kTaken = 0;
constexpr uint32_t kLimit = 4096;  // of a co-processor in order
constexpr uint32_t kOddLimits[] = {0, 1, 15, 16, 17, 18, 64, 1009, 65536, 0xffffffff};
constexpr uint32_t kTinyLimit = 64;  // thousands of packets: not every time
constexpr int kReadErrors[] = {EAGAIN, EIO};

}  // namespace

int ChaosMisc::take(std::span<const uint8_t> packet) {
    const std::string error = misc::shape_error(packet);
    if (error.empty()) {
        check(packet);
    } else {
        fail(error);
    }
    count("packet");
    answer(packet);
    return static_cast<int>(packet.size());
}

// Whatever was answered before: what a packet says about the resource is true.
void ChaosMisc::check(std::span<const uint8_t> packet) {
    const misc::Header header = misc::header_of(packet);
    if (header.kind == misc::kFinish) return;
    const auto file = files_.find(header.type);
    const std::string name = misc::kind_name(header.kind) + ": ";
    if (file == files_.end()) return fail(name + "type " + std::to_string(header.type));
    if (header.kind == misc::kStart) {
        begun_ = true;
        type_ = header.type;
        received_ = 0;
        if (header.size != file->second.size()) {
            fail(differs(name + "size", file->second.size(), header.size));
        }
        return;
    }
    if (!begun_ || header.type != type_) return fail(name + "without a start");
    const auto payload = packet.subspan(misc::kHeaderSize);
    if (header.kind != misc::kCrc) return check_data(header, payload);
    const uint32_t crc = crc_of(file->second);
    if (word_at(payload, 0) != crc) fail(differs(name, hex(crc), hex(word_at(payload, 0))));
}

void ChaosMisc::check_data(const misc::Header& header, std::span<const uint8_t> payload) {
    const Bytes& file = files_.at(type_);
    const std::string name = misc::kind_name(header.kind) + ": ";
    const size_t rest = file.size() - std::min(file.size(), received_);
    if (payload.size() > rest || (header.kind == misc::kLastData && payload.size() != rest)) {
        return fail(differs(name + "bytes", rest, payload.size()));
    }
    if (!std::equal(payload.begin(), payload.end(),
                    file.begin() + static_cast<std::ptrdiff_t>(received_))) {
        fail(name + "other bytes than the file has at " + std::to_string(received_));
    }
    received_ += payload.size();
}

void ChaosMisc::answer(std::span<const uint8_t> packet) {
    const bool is_start = misc::header_of(packet).kind == misc::kStart;
    Dice dice = roll("packet");
    uint32_t limit = is_start ? kLimit : 0;
    const bool odd = dice.percent(is_start ? context_.noise : context_.noise / 8);
    if (odd && is_start && dice.one_in(2)) {
        limit = dice.one_of(kOddLimits);
        if (limit < kTinyLimit && limit > misc::kHeaderSize && !dice.one_in(8)) limit = kTinyLimit;
        count("odd limit");
        return send(misc::make_answer(packet, kTaken, limit));
    }
    Bytes right = misc::make_answer(packet, kTaken, limit);
    if (!odd) return send(std::move(right));
    answer_oddly(std::move(right), dice);
}

void ChaosMisc::answer_oddly(Bytes right, Dice& dice) {
    switch (dice.below(7)) {
        case 0:
            count("refusal");
            put_word(right, 16, dice.word() | 1);
            return send(std::move(right));
        case 1:
            return count("no answer");
        case 2:
            count("short answer");
            right.resize(dice.below(24));
            return send(std::move(right));
        case 3:
            count("long answer");
            right.resize(24 + dice.between(1, 40));
            return send(std::move(right));
        case 4:
            count("random answer");
            return send(dice.bytes(24));
        case 5:
            trouble_.failing_reads = dice.between(1, 3);
            trouble_.read_error = dice.one_of(kReadErrors);
            return send(std::move(right));
        default:
            send({});
            return send(std::move(right));
    }
}

}  // namespace sim
