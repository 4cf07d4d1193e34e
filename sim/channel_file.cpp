// SPDX-License-Identifier: Apache-2.0
#include "sim/channel_file.h"

#include <poll.h>

#include <cerrno>

namespace sim {

void ChannelFile::release() {
    refuse_held_reads(EBADF);
    forget_poller();
    packet_.clear();
    device_.close_channel(channel_);
}

void ChannelFile::read(fuse_req_t request, size_t size, off_t, bool non_blocking) {
    const HeldRead read = {request, size};
    if (held_.empty() && answer(read)) return;
    if (non_blocking) {
        fuse_reply_err(request, EAGAIN);
        return;
    }
    held_.push_back(read);
}

void ChannelFile::write(fuse_req_t request, std::span<const char> data) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(data.data());
    const int result = device_.receive(channel_, {bytes, data.size()});
    if (result < 0) {
        fuse_reply_err(request, -result);
    } else {
        fuse_reply_write(request, static_cast<size_t>(result));
    }
}

void ChannelFile::poll(fuse_req_t request, fuse_pollhandle* handle) {
    if (handle) {
        forget_poller();
        poller_ = handle;
    }
    fuse_reply_poll(request, events());
    device_.polled(channel_);
}

void ChannelFile::serve() {
    std::erase_if(held_, [](const HeldRead& read) {
        if (!fuse_req_interrupted(read.request)) return false;
        fuse_reply_err(read.request, EINTR);
        return true;
    });
    while (!held_.empty() && answer(held_.front())) held_.erase(held_.begin());
    if (poller_ && (events() & (POLLIN | POLLHUP | POLLERR))) {
        fuse_lowlevel_notify_poll(poller_);
        forget_poller();
    }
}

void ChannelFile::abandon() {
    refuse_held_reads(ENODEV);
    forget_poller();
}

unsigned ChannelFile::events() const {
    if (const unsigned odd = device_.odd_events(channel_)) return odd;
    if (device_.hung_up(channel_)) return POLLHUP;
    const bool readable = !packet_.empty() || device_.readable(channel_);
    return POLLOUT | (readable ? POLLIN : 0u);
}

// False: there is nothing to answer with yet.
bool ChannelFile::answer(const HeldRead& read) {
    if (device_.hung_up(channel_)) {
        give(read, {});
        return true;
    }
    if (const auto error = device_.read_error(channel_)) {
        fuse_reply_err(read.request, *error);
        return true;
    }
    if (packet_.empty()) {
        if (!device_.readable(channel_)) return false;
        packet_.refill(device_.take_packet(channel_));
    }
    give(read, packet_.take(read.size));
    return true;
}

void ChannelFile::give(const HeldRead& read, std::span<const uint8_t> bytes) {
    device_.host_reads(channel_, read.size, bytes);
    fuse_reply_buf(read.request, reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void ChannelFile::refuse_held_reads(int error) {
    for (const HeldRead& read : held_) fuse_reply_err(read.request, error);
    held_.clear();
}

void ChannelFile::forget_poller() {
    if (poller_) fuse_pollhandle_destroy(poller_);
    poller_ = nullptr;
}

}  // namespace sim
