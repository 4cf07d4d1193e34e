// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/chaos_channel.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "sim/event.h"

namespace sim {
namespace {

constexpr int kOpenErrors[] = {EBUSY, ENOENT, ENODEV};
constexpr uint32_t kOpensThatFail[] = {1, 1, 1, 2, 2, 3};  // the host tries three times

// True: one of them is used up.
bool take_one(uint32_t& count) {
    if (count == 0) return false;
    if (count != ChannelTrouble::kForEver) --count;
    return true;
}

}  // namespace

int ChaosChannel::open() {
    if (open_) {
        fail("is opened while it is open");
        return -EBUSY;
    }
    Dice dice = roll("open");
    if (trouble_.failing_opens == 0 && dice.percent(context_.noise / 4)) {
        trouble_.failing_opens = dice.one_of(kOpensThatFail);
        trouble_.open_error = dice.one_of(kOpenErrors);
    }
    if (take_one(trouble_.failing_opens)) {
        count("failing open");
        return -trouble_.open_error;
    }
    open_ = true;
    ++context_.tasks;
    emit_change("opened");
    opened();
    return 0;
}

void ChaosChannel::close() {
    if (open_) emit_change("closed");
    open_ = false;
    outbox_.clear();
    closed(std::exchange(hung_up_, false));
}

void ChaosChannel::hang_up() {
    if (!connected()) return;
    hung_up_ = true;
    outbox_.clear();
    count("hang-up");
    emit_change("hung up");
    lost();
}

int ChaosChannel::receive(std::span<const uint8_t> packet) {
    if (!open_) return -EBADF;
    if (hung_up_) return -EPIPE;
    emit_packet("from daemon", packet);
    return take(packet);
}

void ChaosChannel::send(Bytes packet) {
    ++context_.tasks;
    emit_packet("to daemon", packet);
    outbox_.push_back(std::move(packet));
}

// Although there is no packet.
bool ChaosChannel::promises_read() const {
    return trouble_.failing_reads == ChannelTrouble::kForEver || trouble_.empty_reads > 0;
}

bool ChaosChannel::readable() const {
    return promises_read() || !outbox_.empty();
}

void ChaosChannel::set_trouble(const ChannelTrouble& trouble) {
    const bool promised = connected() && promises_read();
    trouble_ = trouble;
    if (promised && trouble_.empty_reads == 0) trouble_.empty_reads = 1;
}

Bytes ChaosChannel::take_packet() {
    if (take_one(trouble_.empty_reads)) {
        count("empty read");
        return {};
    }
    Bytes packet = std::move(outbox_.front());
    outbox_.pop_front();
    return packet;
}

std::optional<int> ChaosChannel::read_error() {
    if (!take_one(trouble_.failing_reads)) return {};
    count("failing read");
    read_failed(trouble_.read_error);
    return trouble_.read_error;
}

void ChaosChannel::polled() {
    if (odd_events() == 0) return;
    take_one(trouble_.odd_polls);
    count("odd poll event");
}

// With its first bytes, as far as a header goes.
void ChaosChannel::emit_packet(const char* direction, std::span<const uint8_t> packet) {
    constexpr size_t kShown = 48;
    std::string bytes;
    for (const uint8_t byte : packet.first(std::min(packet.size(), kShown))) {
        constexpr const char* kDigits = "0123456789abcdef";
        bytes += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    context_.reporter.emit(EventKind::kPacket, {{"direction", direction},
                                                {"channel", name_},
                                                {"length", packet.size()},
                                                {"bytes", bytes}});
}

void ChaosChannel::emit_change(const char* change) {
    context_.reporter.emit(EventKind::kChannel, {{"channel", name_}, {"change", change}});
}

}  // namespace sim
