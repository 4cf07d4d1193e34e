// SPDX-License-Identifier: Apache-2.0
// The scripted platform as the product sees it: descriptors, polls, waits.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/scripted/scripted_platform.h"

namespace scripted {
int Platform::open(const char* path, int flags, unsigned int mode) {
    const std::lock_guard lock(mutex_);
    if (const int error = open_error(path, flags); error != 0) {
        return finish_call(std::string("open ") + path, error);
    }
    Node& node = nodes_[path];
    if (node.file == nullptr) {
        made(path).mode = S_IFREG | mode;
    }
    int fd = std::exchange(next_descriptor_, -1);
    for (int candidate = 3; fd < 0; ++candidate) {
        fd = descriptors_.count(candidate) == 0 ? candidate : -1;
    }
    if (S_ISFIFO(node.file->mode) && (flags & O_NONBLOCK) == 0) {
        throw std::logic_error(std::string("open waits for a writer of ") + path);
    }
    if (S_ISREG(node.file->mode) && (flags & O_TRUNC) != 0) {
        node.file->contents.clear();
        observe({.kind = DiskChange::Kind::truncated, .file = node.file->id, .path = path});
    }
    node.hung_up = false;
    descriptors_[fd] = {path, flags, node.file};
    note(std::string("open ") + path + " = " + std::to_string(fd));
    return fd;
}

int Platform::close(int fd) {
    const std::lock_guard lock(mutex_);
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) {
        errno = EBADF;
        return -1;
    }
    note("close " + found->second.path);
    // A pipe with one end left hangs up; everything else is as new for the next open.
    nodes_[found->second.path].hung_up = found->second.path.starts_with("pipe:");
    listeners_ended_ += found->second.path == kUeventSocket ? 1 : 0;
    descriptors_.erase(found);
    changed_.notify_all();
    return 0;
}

// The first byte range of the scripted step; what was not asked for stays for the next read.
ssize_t Platform::take_read(Node& node, void* buffer, size_t size) {
    Step& step = node.reads.front();
    const int error = step.error;
    now_ns_ += std::exchange(step.takes_ns, 0);
    failures_ += error != 0 || step.data.empty() ? 1 : 0;
    const size_t count = std::min(size, step.data.size());
    if (count > 0) {
        std::memcpy(buffer, step.data.data(), count);
        step.data.erase(step.data.begin(), step.data.begin() + static_cast<ptrdiff_t>(count));
    }
    if (step.data.empty()) {
        node.reads.pop_front();
    }
    changed_.notify_all();
    errno = error != 0 ? error : errno;
    return error != 0 ? -1 : static_cast<ssize_t>(count);
}

ssize_t Platform::read(int fd, void* buffer, size_t size) {
    return read_at(fd, buffer, size, std::nullopt);
}

ssize_t Platform::pread(int fd, void* buffer, size_t size, int64_t offset) {
    return read_at(fd, buffer, size, offset);
}

ssize_t Platform::read_at(int fd, void* buffer, size_t size, std::optional<int64_t> offset) {
    std::unique_lock lock(mutex_);
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end() || (found->second.flags & O_ACCMODE) == O_WRONLY) {
        errno = EBADF;
        return -1;
    }
    Node& node = nodes_[found->second.path];
    if (node.is_device) {
        ++waiting_reads_;
        changed_.notify_all();
        changed_.wait(lock, [&] { return !node.reads.empty() || node.hung_up; });
        --waiting_reads_;
    }
    if (!node.reads.empty()) {
        return take_read(node, buffer, size);
    }
    size_t& position = found->second.position;
    const size_t start = offset ? static_cast<size_t>(*offset) : position;
    const Bytes& contents = found->second.file->contents;
    const size_t count = std::min(size, contents.size() - std::min(start, contents.size()));
    if (count > 0) {
        std::memcpy(buffer, contents.data() + start, count);
    }
    position += offset ? 0 : count;
    return static_cast<ssize_t>(count);
}

ssize_t Platform::write(int fd, const void* buffer, size_t size) {
    return write_at(fd, buffer, size, std::nullopt);
}

ssize_t Platform::pwrite(int fd, const void* buffer, size_t size, int64_t offset) {
    return write_at(fd, buffer, size, offset);
}

ssize_t Platform::write_at(int fd, const void* buffer, size_t size, std::optional<int64_t> offset) {
    std::function<void(const Bytes&)> handler;
    Bytes packet;
    {
        const std::lock_guard lock(mutex_);
        const auto found = descriptors_.find(fd);
        if (found == descriptors_.end() || (found->second.flags & O_ACCMODE) == O_RDONLY) {
            errno = EBADF;
            return -1;
        }
        Node& node = nodes_[found->second.path];
        Step step;
        if (!node.writes.empty()) {
            step = node.writes.front();
            node.writes.pop_front();
        }
        now_ns_ += step.takes_ns;
        failures_ += step.error != 0 || step.accepted == 0 ? 1 : 0;
        const auto* begin = static_cast<const uint8_t*>(buffer);
        const std::string call = (offset ? "pwrite " : "write ") + found->second.path;
        if (step.error != 0) {
            return finish_call(call, step.error);
        }
        packet.assign(begin, begin + std::min(size, step.accepted));
        note(call + " " + std::to_string(packet.size()) +
             (offset ? " at " + std::to_string(*offset) : ""));
        if (!node.is_device) {
            store(found->second, packet, offset);
        }
        // The two ends of a pipe share one node.
        if (found->second.path.starts_with("pipe:")) {
            node.reads.push_back({packet});
        }
        node.written.push_back(packet);
        handler = node.on_write;
        changed_.notify_all();
    }
    if (handler) {
        handler(packet);
    }
    return static_cast<ssize_t>(packet.size());
}

int Platform::file_size_and_mode(int fd, int64_t* size, unsigned int* mode) {
    const std::lock_guard lock(mutex_);
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) {
        errno = EBADF;
        return -1;
    }
    const File& file = *found->second.file;
    *size = file.reported_size.value_or(static_cast<int64_t>(file.contents.size()));
    *mode = file.mode;
    return 0;
}

// What a poll reports for one descriptor now. A scripted event is reported once.
short Platform::events_of(int fd, short wanted) {
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) {
        return 0;
    }
    Node& node = nodes_[found->second.path];
    if (!node.events.empty()) {
        const short events = node.events.front();
        node.events.pop_front();
        changed_.notify_all();
        return events;
    }
    if (node.hung_up) {
        return POLLHUP;
    }
    return static_cast<short>(node.reads.empty() ? 0 : (POLLIN & wanted));
}

bool Platform::anything_pending() {
    return !poll_failures_.empty() ||
           std::any_of(descriptors_.begin(), descriptors_.end(), [this](const auto& entry) {
               const Node& node = nodes_[entry.second.path];
               return !node.reads.empty() || !node.events.empty() || node.hung_up;
           });
}

int Platform::poll(struct pollfd* entries, size_t count, int timeout_ms) {
    std::unique_lock lock(mutex_);
    ++poll_passes_;
    while (true) {
        if (!poll_failures_.empty()) {
            const int error = poll_failures_.front();
            poll_failures_.pop_front();
            errno = error;
            return error == 0 ? 0 : -1;
        }
        int ready = 0;
        for (size_t index = 0; index < count; ++index) {
            entries[index].revents = events_of(entries[index].fd, entries[index].events);
            ready += entries[index].revents != 0 ? 1 : 0;
        }
        if (ready > 0) {
            return ready;
        }
        if (timeout_ms >= 0) {
            now_ns_ += int64_t{timeout_ms} * 1'000'000;
            return 0;
        }
        ++waiting_polls_;
        changed_.notify_all();
        changed_.wait(lock);
        --waiting_polls_;
    }
}

int Platform::ioctl(int fd, uint32_t request, void* argument) {
    IoctlHandler handler;
    {
        const std::lock_guard lock(mutex_);
        if (descriptors_.count(fd) == 0) {
            errno = EBADF;
            return -1;
        }
        handler = ioctl_handler_;
    }
    auto* words = static_cast<uint32_t*>(argument);
    const int result = handler ? handler(request, words) : 0;
    char line[80];
    snprintf(line, sizeof(line), "ioctl %#x cmd %u value %u = %d", request, words[5],
             words[6] != 0 ? 0 : words[0], result);
    const std::lock_guard lock(mutex_);
    note(line);
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}

int Platform::pipe(int ends[2]) {
    std::unique_lock lock(mutex_);
    if (pipe_error_ != 0) {
        errno = std::exchange(pipe_error_, 0);
        return -1;
    }
    const std::string path = "pipe:" + std::to_string(++pipes_);
    made(path);
    nodes_[path].is_device = true;
    int fd = 100;
    for (int end = 0; end < 2; ++end) {
        for (; descriptors_.count(fd) != 0; ++fd) {
        }
        descriptors_[fd] = {path, end == 0 ? O_RDONLY : O_WRONLY, nodes_[path].file};
        ends[end] = fd;
    }
    return 0;
}

const std::vector<std::pair<std::string, uint8_t>>* Platform::list(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto found = directories_.find(path);
    return found == directories_.end() ? nullptr : &found->second;
}

void Platform::wait(int64_t nanoseconds, const std::string& line) {
    std::function<void(int64_t)> handler;
    int64_t seconds = 0;
    {
        const std::lock_guard lock(mutex_);
        now_ns_ += nanoseconds;
        note(line);
        const bool counts = sleeps_left_ > 0 && std::this_thread::get_id() == stopped_thread_;
        if (counts && --sleeps_left_ == 0) {
            sleeps_left_ = -1;
            throw Stopped();
        }
        handler = sleep_handler_;
        seconds = now_ns_ / 1'000'000'000;
    }
    if (handler) {
        handler(seconds);
    }
}

void Platform::set_property(const std::string& name, const std::string& value) {
    const std::lock_guard lock(mutex_);
    properties_[name] = value;
    note("set " + name + "=" + value);
}

}  // namespace scripted
