// SPDX-License-Identifier: Apache-2.0
// What the daemon can reach through its device files: a co-processor as its kernel driver shows it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "sim/observer.h"

namespace sim {

// The daemon's memory, as the kernel driver reaches it. False: the range is not the daemon's.
class UserMemory {
  public:
    virtual ~UserMemory() = default;
    virtual bool read(uint32_t address, std::span<uint8_t> into) = 0;
    virtual bool write(uint32_t address, std::span<const uint8_t> from) = 0;
};

enum class Channel { kDfu, kMiscData, kRma };

// Not thread-safe: one thread calls it.
class Device {
  public:
    virtual ~Device() = default;

    // Moves the clock on and does what has become due. Call it before every other call, with the
    // time of that call; a time before the last one is taken as the last one.
    virtual void set_time(Time now) = 0;
    // When set_time must be called next if nothing else happens; none: nothing is under way.
    virtual std::optional<Time> next_deadline() const = 0;

    // 0, or the negated errno that the control device cannot be opened with now.
    virtual int open_control() { return 0; }
    // One request on the control device. `block`: the 32 bytes of the request, or empty for the
    // read-only requests, which the kernel hands no input. Result >= 0 (the boot mode for "get boot
    // mode", else 0) or -errno. The block is never changed: replies go to the memory it points to.
    virtual int ioctl(uint32_t request, std::span<uint8_t> block, UserMemory& memory) = 0;

    // 0, -ENODEV (the co-processor does not run), -EBUSY (already open).
    virtual int open_channel(Channel channel) = 0;
    virtual void close_channel(Channel channel) = 0;
    // One packet written by the daemon: bytes taken, -EPIPE (hung up) or -EBADF (not open).
    virtual int receive(Channel channel, std::span<const uint8_t> packet) = 0;
    virtual bool readable(Channel channel) const = 0;
    // True from the co-processor's reset or unload until the channel is closed.
    virtual bool hung_up(Channel channel) const = 0;
    virtual Bytes take_packet(Channel channel) = 0;  // the next one to the daemon; was readable()

    // For a device that does not behave. An errno that a read fails with now, before any packet.
    virtual std::optional<int> read_error(Channel) { return {}; }
    // What poll tells instead of what is true; 0: nothing.
    virtual unsigned odd_events(Channel) const { return 0; }
    virtual void polled(Channel) {}  // poll has told it
    // A read that asked for `size` bytes is about to get these.
    virtual void host_reads(Channel, size_t /*size*/, std::span<const uint8_t>) {}

    virtual std::string remoteproc_state() const = 0;  // "running\n" or "offline\n"
    // The bytes written to /sys/power/wake_lock and wake_unlock, as they came (with the NUL).
    virtual void write_wake_lock(std::string_view name) = 0;
    virtual void write_wake_unlock(std::string_view name) = 0;
};

}  // namespace sim
