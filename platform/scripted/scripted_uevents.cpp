// SPDX-License-Identifier: Apache-2.0
// The kernel's uevent socket of the scripted platform.
#include <cutils/uevent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/scripted/scripted_platform.h"

namespace scripted {

void Platform::uevent(const std::string& message, std::optional<ssize_t> result) {
    const std::lock_guard lock(mutex_);
    uevents_.push_back({message, result});
    changed_.notify_all();
}

void Platform::fail_uevent_socket(int error) {
    const std::lock_guard lock(mutex_);
    nodes_[kUeventSocket].open_errors.push_back(error);
}

void Platform::wait_until_listening() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] {
        return listeners_ended_ > 0 || (waiting_listeners_ > 0 && uevents_.empty());
    });
}

void Platform::end_uevents() {
    std::unique_lock lock(mutex_);
    uevents_end_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return listeners_ended_ > 0; });
}

int Platform::open_uevent_socket() {
    device(kUeventSocket);
    return open(kUeventSocket, O_RDONLY);
}

ssize_t Platform::receive_uevent(int fd, void* buffer, size_t size) {
    std::unique_lock lock(mutex_);
    if (descriptors_.count(fd) == 0) {
        ++listeners_ended_;
        changed_.notify_all();
        errno = EBADF;
        return -1;
    }
    ++waiting_listeners_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return uevents_end_ || !uevents_.empty(); });
    --waiting_listeners_;
    if (uevents_.empty()) {
        errno = ENOBUFS;
        return -1;
    }
    const auto [message, result] = uevents_.front();
    uevents_.pop_front();
    const size_t count = std::min(size, message.size());
    std::memcpy(buffer, message.data(), count);
    return result.value_or(static_cast<ssize_t>(count));
}

}  // namespace scripted

int uevent_open_socket(int, bool) {
    return scripted::platform().open_uevent_socket();
}

ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    return scripted::platform().receive_uevent(socket, buffer, length);
}
