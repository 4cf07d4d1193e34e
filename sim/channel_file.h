// SPDX-License-Identifier: Apache-2.0
// A packet channel of the co-processor as a file: /dev/glink_pkt_marlo_...
#pragma once

#include <vector>

#include "sim/device.h"
#include "sim/file_tree.h"
#include "sim/packet_cutter.h"

namespace sim {

// One write is one packet. A read is held until there is a packet, unless the descriptor does not
// block. On a hang-up reads end with 0 and poll reports POLLHUP alone, until the file is closed.
class ChannelFile : public File {
  public:
    ChannelFile(Device& device, Channel channel)
        : File(0660, Access::kStream), device_(device), channel_(channel) {}

    int open() override { return device_.open_channel(channel_); }
    void release() override;
    void read(fuse_req_t request, size_t size, off_t offset, bool non_blocking) override;
    void write(fuse_req_t request, std::span<const char> data) override;
    void poll(fuse_req_t request, fuse_pollhandle* handle) override;

    // Answers held reads and wakes pollers, as far as the device's state now allows. To be
    // called after everything that can change that state.
    void serve();
    // Answers what is still held, with an error. To be called before the mount goes.
    void abandon();

  private:
    struct HeldRead {
        fuse_req_t request;
        size_t size;
    };

    unsigned events() const;
    bool answer(const HeldRead& read);
    void give(const HeldRead& read, std::span<const uint8_t> bytes);
    void refuse_held_reads(int error);
    void forget_poller();

    Device& device_;
    Channel channel_;
    PacketCutter packet_;
    std::vector<HeldRead> held_;
    fuse_pollhandle* poller_ = nullptr;
};

}  // namespace sim
