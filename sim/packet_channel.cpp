// SPDX-License-Identifier: Apache-2.0
#include "sim/packet_channel.h"

#include <cerrno>
#include <string>
#include <utility>

#include "sim/event.h"

namespace sim {

int PacketChannel::open() {
    if (open_) {
        reporter_.fail(std::string("the channel ") + name_ + " is opened while it is open");
        return -EBUSY;
    }
    if (const int error = opening_error()) return error;
    open_ = true;
    emit_change("opened");
    on_open();
    return 0;
}

void PacketChannel::close() {
    if (open_) emit_change("closed");
    open_ = false;
    hung_up_ = false;
    outbox_.clear();
}

void PacketChannel::hang_up() {
    if (!open_ || hung_up_) return;
    hung_up_ = true;
    outbox_.clear();
    emit_change("hung up");
    on_hang_up();
}

Bytes PacketChannel::take_packet() {
    Bytes packet = std::move(outbox_.front());
    outbox_.pop_front();
    return packet;
}

void PacketChannel::send(Bytes packet, nlohmann::json description) {
    if (!open_ || hung_up_) return;
    outbox_.push_back(std::move(packet));
    emit_packet("to daemon", std::move(description));
}

void PacketChannel::emit_received(nlohmann::json description) {
    emit_packet("from daemon", std::move(description));
}

void PacketChannel::emit_change(const char* change) {
    reporter_.emit(EventKind::kChannel, {{"channel", name_}, {"change", change}});
}

void PacketChannel::emit_packet(const char* direction, nlohmann::json description) {
    description["direction"] = direction;
    description["channel"] = name_;
    reporter_.emit(EventKind::kPacket, std::move(description));
}

}  // namespace sim
