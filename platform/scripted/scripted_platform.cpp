// SPDX-License-Identifier: Apache-2.0
#include "platform/scripted/scripted_platform.h"

#include <android/log.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace scripted {
namespace {

std::unique_ptr<Platform> g_platform;

std::string error_text(int error) {
    return error == 0 ? "" : " " + std::to_string(error);
}

char letter_of(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

}  // namespace

Platform& platform() {
    return *g_platform;
}

void reset_platform() {
    g_platform = std::make_unique<Platform>();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_default_tag("scripted");
    __android_log_set_logger([](const __android_logger_data* data, const char* text) {
        g_platform->note_log(data->priority, data->tag, text);
    });
}

Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

Step failure(int error) {
    Step step;
    step.error = error;
    return step;
}

void Platform::file(const std::string& path, const std::string& contents) {
    const std::lock_guard lock(mutex_);
    nodes_[path].contents = bytes_of(contents);
}

void Platform::device(const std::string& path) {
    const std::lock_guard lock(mutex_);
    nodes_[path].is_device = true;
}

void Platform::remove(const std::string& path) {
    const std::lock_guard lock(mutex_);
    nodes_.erase(path);
}

void Platform::directory(const std::string& path,
                         std::vector<std::pair<std::string, uint8_t>> entries) {
    const std::lock_guard lock(mutex_);
    directories_[path] = std::move(entries);
}

void Platform::file_mode(const std::string& path, unsigned int mode) {
    const std::lock_guard lock(mutex_);
    nodes_[path].mode = mode;
}

void Platform::fail_opens(const std::string& path, const std::vector<int>& errors) {
    const std::lock_guard lock(mutex_);
    auto& queue = nodes_[path].open_errors;
    queue.insert(queue.end(), errors.begin(), errors.end());
}

void Platform::next_descriptor(int fd) {
    const std::lock_guard lock(mutex_);
    next_descriptor_ = fd;
}

void Platform::script_read(const std::string& path, Step step) {
    const std::lock_guard lock(mutex_);
    nodes_[path].reads.push_back(std::move(step));
    changed_.notify_all();
}

void Platform::script_write(const std::string& path, Step step) {
    const std::lock_guard lock(mutex_);
    nodes_[path].writes.push_back(std::move(step));
}

void Platform::script_poll_events(const std::string& path, short events) {
    const std::lock_guard lock(mutex_);
    nodes_[path].events.push_back(events);
    changed_.notify_all();
}

void Platform::script_poll_failure(int error) {
    const std::lock_guard lock(mutex_);
    poll_failures_.push_back(error);
    changed_.notify_all();
}

void Platform::fail_next_pipe(int error) {
    const std::lock_guard lock(mutex_);
    pipe_error_ = error;
}

void Platform::no_low_memory(bool none) {
    const std::lock_guard lock(mutex_);
    no_low_memory_ = none;
}

void Platform::hang_up(const std::string& path) {
    const std::lock_guard lock(mutex_);
    nodes_[path].hung_up = true;
    changed_.notify_all();
}

void Platform::on_ioctl(IoctlHandler handler) {
    const std::lock_guard lock(mutex_);
    ioctl_handler_ = std::move(handler);
}

void Platform::on_write(const std::string& path, std::function<void(const Bytes&)> handler) {
    const std::lock_guard lock(mutex_);
    nodes_[path].on_write = std::move(handler);
}

void Platform::on_sleep(std::function<void(int64_t)> handler) {
    const std::lock_guard lock(mutex_);
    sleep_handler_ = std::move(handler);
}

void Platform::stop_after_sleeps(int count) {
    const std::lock_guard lock(mutex_);
    sleeps_left_ = count;
}

void Platform::property(const std::string& name, const std::string& value) {
    const std::lock_guard lock(mutex_);
    properties_[name] = value;
}

void Platform::remark(const std::string& line) {
    const std::lock_guard lock(mutex_);
    note(line);
}

void Platform::wait_until_idle() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_polls_ > 0 && !anything_pending(); });
}

void Platform::wait_until_reading() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_reads_ > 0; });
}

std::string Platform::property(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto found = properties_.find(name);
    return found == properties_.end() ? "" : found->second;
}

std::vector<Bytes> Platform::written(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return nodes_[path].written;
}

std::vector<std::string> Platform::transcript(const std::vector<std::string>& prefixes) {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> lines;
    for (const std::string& line : transcript_) {
        if (std::any_of(prefixes.begin(), prefixes.end(),
                        [&](const std::string& prefix) { return line.starts_with(prefix); })) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<std::string> Platform::log() {
    return transcript({"E ", "I ", "D ", "V ", "F ", "? "});
}

size_t Platform::count(const std::string& text) {
    const std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::count_if(
        transcript_.begin(), transcript_.end(),
        [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

std::set<std::string> Platform::log_tags() {
    const std::lock_guard lock(mutex_);
    return tags_;
}

int64_t Platform::now_ns() {
    const std::lock_guard lock(mutex_);
    return now_ns_;
}

int Platform::open_descriptors() {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(descriptors_.size());
}

int Platform::poll_passes() {
    const std::lock_guard lock(mutex_);
    return poll_passes_;
}

void Platform::note(const std::string& line) {
    transcript_.push_back(line);
}

void Platform::note_log(int priority, const char* tag, const char* text) {
    const std::lock_guard lock(mutex_);
    tags_.insert(tag != nullptr ? tag : "");
    note(std::string(1, letter_of(priority)) + " " + text);
}

int Platform::open(const char* path, int flags) {
    const std::lock_guard lock(mutex_);
    const auto found = nodes_.find(path);
    int error = found == nodes_.end() ? ENOENT : 0;
    if (found != nodes_.end() && !found->second.open_errors.empty()) {
        error = found->second.open_errors.front();
        found->second.open_errors.pop_front();
    }
    if (error != 0) {
        note(std::string("open ") + path + " = -1" + error_text(error));
        errno = error;
        return -1;
    }
    int fd = std::exchange(next_descriptor_, -1);
    for (int candidate = 3; fd < 0; ++candidate) {
        fd = descriptors_.count(candidate) == 0 ? candidate : -1;
    }
    if (S_ISFIFO(found->second.mode) && (flags & O_NONBLOCK) == 0) {
        throw std::logic_error(std::string("open waits for a writer of ") + path);
    }
    found->second.hung_up = false;
    descriptors_[fd] = {path, flags};
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
    descriptors_.erase(found);
    changed_.notify_all();
    return 0;
}

// The first byte range of the scripted step; what was not asked for stays for the next read.
ssize_t Platform::take_read(Node& node, void* buffer, size_t size) {
    Step& step = node.reads.front();
    const int error = step.error;
    now_ns_ += std::exchange(step.takes_ns, 0);
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
    const size_t left = node.contents.size() - std::min(position, node.contents.size());
    const size_t count = node.is_device ? 0 : std::min(size, left);
    if (count > 0) {
        std::memcpy(buffer, node.contents.data() + position, count);
    }
    position += count;
    return static_cast<ssize_t>(count);
}

ssize_t Platform::pread(int fd, void* buffer, size_t size, int64_t offset) {
    {
        const std::lock_guard lock(mutex_);
        const auto found = descriptors_.find(fd);
        if (found != descriptors_.end()) {
            found->second.position = static_cast<size_t>(offset);
        }
    }
    return read(fd, buffer, size);
}

ssize_t Platform::write(int fd, const void* buffer, size_t size) {
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
        const auto* begin = static_cast<const uint8_t*>(buffer);
        if (step.error != 0) {
            note("write " + found->second.path + " = -1" + error_text(step.error));
            errno = step.error;
            return -1;
        }
        packet.assign(begin, begin + std::min(size, step.accepted));
        note("write " + found->second.path + " " + std::to_string(packet.size()));
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
    const Node& node = nodes_[found->second.path];
    *size = static_cast<int64_t>(node.contents.size());
    *mode = node.mode;
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

int Platform::ioctl(int fd, unsigned long request, void* argument) {
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
    snprintf(line, sizeof(line), "ioctl %#lx cmd %u value %u = %d", request, words[5],
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
    nodes_[path].is_device = true;
    int fd = 100;
    for (int end = 0; end < 2; ++end) {
        for (; descriptors_.count(fd) != 0; ++fd) {
        }
        descriptors_[fd] = {path, end == 0 ? O_RDONLY : O_WRONLY};
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
        if (sleeps_left_ > 0 && --sleeps_left_ == 0) {
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
