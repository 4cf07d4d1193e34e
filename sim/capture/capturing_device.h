// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

#include "sim/capture/captured_frame.h"
#include "sim/device.h"

namespace sim {

// Another device, and every command, packet, opening, closing and hang-up of it is told. A packet
// to the daemon counts when the daemon takes it: what it never reads is not told.
class CapturingDevice : public Device {
  public:
    // Both must outlive it.
    CapturingDevice(Device& device, FrameObserver& observer)
        : device_(device), observer_(observer) {}

    void set_time(Time now) override;
    std::optional<Time> next_deadline() const override { return device_.next_deadline(); }
    int open_control() override;
    int ioctl(uint32_t request, std::span<uint8_t> block, UserMemory& memory) override;
    int open_channel(Channel channel) override;
    void close_channel(Channel channel) override;
    int receive(Channel channel, std::span<const uint8_t> packet) override;
    bool readable(Channel channel) const override { return device_.readable(channel); }
    bool hung_up(Channel channel) const override { return device_.hung_up(channel); }
    Bytes take_packet(Channel channel) override;
    std::optional<int> read_error(Channel channel) override;
    unsigned odd_events(Channel channel) const override { return device_.odd_events(channel); }
    void polled(Channel channel) override;
    void host_reads(Channel channel, size_t size, std::span<const uint8_t> bytes) override;
    std::string remoteproc_state() const override { return device_.remoteproc_state(); }
    void write_wake_lock(std::string_view name) override { device_.write_wake_lock(name); }
    void write_wake_unlock(std::string_view name) override { device_.write_wake_unlock(name); }

  private:
    void tell(FrameKind kind, FrameSource source, FrameDirection direction, int result,
              Bytes body = {});
    void tell_hang_ups();

    Device& device_;
    FrameObserver& observer_;
    Time now_{};
    std::array<bool, 3> hung_up_{};  // of each channel, as it was told
};

}  // namespace sim
