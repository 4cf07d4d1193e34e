// SPDX-License-Identifier: Apache-2.0
#include "sim/capture/capturing_device.h"

#include <algorithm>
#include <utility>

#include "sim/packet_words.h"

namespace sim {
namespace {

constexpr Channel kChannels[] = {Channel::kDfu, Channel::kMiscData, Channel::kRma};

FrameSource source_of(Channel channel) {
    switch (channel) {
        case Channel::kDfu:
            return FrameSource::kDfu;
        case Channel::kMiscData:
            return FrameSource::kMiscData;
        case Channel::kRma:
            break;
    }
    return FrameSource::kRma;
}

// The daemon's memory, and each access to it is appended to the body of a command's frame.
class RecordedMemory : public UserMemory {
  public:
    RecordedMemory(UserMemory& memory, Bytes& body) : memory_(memory), body_(body) {}

    bool read(uint32_t address, std::span<uint8_t> into) override {
        const bool done = memory_.read(address, into);
        record(FrameDirection::kFromDaemon, address, into, done);
        return done;
    }
    bool write(uint32_t address, std::span<const uint8_t> from) override {
        const bool done = memory_.write(address, from);
        record(FrameDirection::kToDaemon, address, from, done);
        return done;
    }

  private:
    void record(FrameDirection direction, uint32_t address, std::span<const uint8_t> bytes,
                bool done) {
        append_words(body_, {static_cast<uint32_t>(direction), address,
                             static_cast<uint32_t>(bytes.size()), done ? 1u : 0u});
        if (done) body_.insert(body_.end(), bytes.begin(), bytes.end());
    }

    UserMemory& memory_;
    Bytes& body_;
};

}  // namespace

void CapturingDevice::set_time(Time now) {
    now_ = std::max(now, now_);
    device_.set_time(now);
    tell_hang_ups();
}

int CapturingDevice::open_control() {
    const int result = device_.open_control();
    // One that succeeds says no more than the command that follows it.
    if (result < 0) {
        tell(FrameKind::kOpen, FrameSource::kControl, FrameDirection::kFromDaemon, result);
    }
    return result;
}

int CapturingDevice::ioctl(uint32_t request, std::span<uint8_t> block, UserMemory& memory) {
    Bytes body;
    append_words(body, {request, static_cast<uint32_t>(block.size())});
    body.insert(body.end(), block.begin(), block.end());
    RecordedMemory recorded(memory, body);
    const int result = device_.ioctl(request, block, recorded);
    tell(FrameKind::kCommand, FrameSource::kControl, FrameDirection::kFromDaemon, result,
         std::move(body));
    return result;
}

int CapturingDevice::open_channel(Channel channel) {
    const int result = device_.open_channel(channel);
    tell(FrameKind::kOpen, source_of(channel), FrameDirection::kFromDaemon, result);
    return result;
}

void CapturingDevice::close_channel(Channel channel) {
    tell_hang_ups();
    device_.close_channel(channel);
    tell(FrameKind::kClose, source_of(channel), FrameDirection::kFromDaemon, 0);
}

int CapturingDevice::receive(Channel channel, std::span<const uint8_t> packet) {
    tell_hang_ups();
    const int result = device_.receive(channel, packet);
    tell(FrameKind::kPacket, source_of(channel), FrameDirection::kFromDaemon, result,
         Bytes(packet.begin(), packet.end()));
    return result;
}

Bytes CapturingDevice::take_packet(Channel channel) {
    Bytes packet = device_.take_packet(channel);
    tell(FrameKind::kPacket, source_of(channel), FrameDirection::kToDaemon, 0, packet);
    return packet;
}

std::optional<int> CapturingDevice::read_error(Channel channel) {
    const std::optional<int> error = device_.read_error(channel);
    if (error) {
        tell(FrameKind::kReadError, source_of(channel), FrameDirection::kToDaemon, -*error);
    }
    return error;
}

void CapturingDevice::polled(Channel channel) {
    device_.polled(channel);
    tell_hang_ups();
}

void CapturingDevice::host_reads(Channel channel, size_t size, std::span<const uint8_t> bytes) {
    device_.host_reads(channel, size, bytes);
    tell_hang_ups();
}

void CapturingDevice::tell(FrameKind kind, FrameSource source, FrameDirection direction, int result,
                           Bytes body) {
    observer_.frame({now_, kind, source, direction, result, std::move(body)});
    tell_hang_ups();
}

// Of those that have come since.
void CapturingDevice::tell_hang_ups() {
    for (const Channel channel : kChannels) {
        bool& told = hung_up_.at(static_cast<size_t>(channel));
        const bool now = device_.hung_up(channel);
        if (std::exchange(told, now) == now || !now) continue;
        tell(FrameKind::kHangUp, source_of(channel), FrameDirection::kToDaemon, 0);
    }
}

}  // namespace sim
