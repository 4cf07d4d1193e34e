// SPDX-License-Identifier: Apache-2.0
#include "platform/scripted/scripted_platform.h"

#include <android/log.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

namespace scripted {
namespace {

std::unique_ptr<Platform> g_platform;

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
    File& file = made(path);
    file.contents = bytes_of(contents);
    observe({.kind = DiskChange::Kind::truncated, .file = file.id, .path = path});
    observe(
        {.kind = DiskChange::Kind::written, .file = file.id, .path = path, .bytes = file.contents});
}

void Platform::device(const std::string& path) {
    const std::lock_guard lock(mutex_);
    made(path);
    nodes_[path].is_device = true;
}

void Platform::remove(const std::string& path) {
    const std::lock_guard lock(mutex_);
    nodes_.erase(path);
    directories_.erase(path);
}

void Platform::directory(const std::string& path,
                         std::vector<std::pair<std::string, uint8_t>> entries) {
    const std::lock_guard lock(mutex_);
    made(path).mode = S_IFDIR | 0755;
    directories_[path] = std::move(entries);
}

void Platform::file_mode(const std::string& path, unsigned int mode) {
    const std::lock_guard lock(mutex_);
    made(path).mode = mode;
}

void Platform::file_size(const std::string& path, int64_t size) {
    const std::lock_guard lock(mutex_);
    made(path).reported_size = size;
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

void Platform::fail_call(const std::string& call, int error) {
    const std::lock_guard lock(mutex_);
    call_errors_[call].push_back(error);
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

void Platform::fail_next_thread(int error) {
    const std::lock_guard lock(mutex_);
    thread_error_ = error;
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
    stopped_thread_ = std::this_thread::get_id();
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

std::optional<Bytes> Platform::contents(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return exists(path) ? std::optional(nodes_[path].file->contents) : std::nullopt;
}

std::vector<std::string> Platform::files_below(const std::string& directory) {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    for (const auto& [path, node] : nodes_) {
        if (path.starts_with(directory) && node.file != nullptr && S_ISREG(node.file->mode)) {
            paths.push_back(path);
        }
    }
    return paths;
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

size_t Platform::failures() {
    const std::lock_guard lock(mutex_);
    return failures_;
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

}  // namespace scripted
