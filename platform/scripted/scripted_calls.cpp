// SPDX-License-Identifier: Apache-2.0
// The functions that the product calls, each handed to the platform of the running test.
#include <cutils/properties.h>
#include <sys/mman.h>
#include <utils/SystemClock.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

#include "platform/low_memory.h"
#include "platform/os.h"
#include "platform/scripted/scripted_platform.h"

using scripted::platform;

namespace {

// What os::opendir hands out in place of the C library's opaque record.
struct Listing {
    const std::vector<std::pair<std::string, uint8_t>>* entries;
    size_t next = 0;
    dirent current{};
};

constexpr time_t kStartOfTime = 1'700'000'000;

}  // namespace

namespace os {

void initialize() {}
int open(const char* path, int flags, mode_t mode) {
    return platform().open(path, flags, mode);
}
int close(int fd) {
    return platform().close(fd);
}
ssize_t read(int fd, void* buffer, size_t size) {
    return platform().read(fd, buffer, size);
}
ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
    return platform().pread(fd, buffer, size, offset);
}
ssize_t write(int fd, const void* buffer, size_t size) {
    return platform().write(fd, buffer, size);
}
ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
    return platform().pwrite(fd, buffer, size, offset);
}
int fsync(int fd) {
    return platform().sync("fsync", fd);
}
int fdatasync(int fd) {
    return platform().sync("fdatasync", fd);
}
int fstat(int fd, struct stat* status) {
    int64_t size = 0;
    unsigned int mode = 0;
    if (platform().file_size_and_mode(fd, &size, &mode) != 0) {
        return -1;
    }
    *status = {};
    status->st_size = size;
    status->st_mode = mode;
    return 0;
}
int poll(struct pollfd* entries, nfds_t count, int timeout_ms) {
    return platform().poll(entries, count, timeout_ms);
}
int ioctl(int fd, uint32_t request, void* argument) {
    return platform().ioctl(fd, request, argument);
}
int pipe(int ends[2]) {
    return platform().pipe(ends);
}
int rename_to_new(const char* from, const char* to) {
    return platform().rename(from, to);
}
int unlink(const char* path) {
    return platform().unlink(path);
}

DIR* opendir(const char* path) {
    const auto* entries = platform().list(path);
    if (entries == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    return reinterpret_cast<DIR*>(new Listing{entries});
}
dirent* readdir(DIR* directory) {
    auto* listing = reinterpret_cast<Listing*>(directory);
    if (listing->next == listing->entries->size()) {
        return nullptr;
    }
    const auto& [name, type] = (*listing->entries)[listing->next++];
    listing->current.d_type = type;
    listing->current.d_name[name.copy(listing->current.d_name, 255)] = '\0';
    return &listing->current;
}
int closedir(DIR* directory) {
    delete reinterpret_cast<Listing*>(directory);
    return 0;
}

unsigned int sleep(unsigned int seconds) {
    platform().wait(int64_t{seconds} * 1'000'000'000, "sleep " + std::to_string(seconds));
    return 0;
}
int usleep(useconds_t microseconds) {
    platform().wait(int64_t{microseconds} * 1'000, "usleep " + std::to_string(microseconds));
    return 0;
}
time_t time() {
    return kStartOfTime + static_cast<time_t>(platform().now_ns() / 1'000'000'000);
}

std::thread start_thread(std::function<void()> body) {
    return platform().start_thread(std::move(body));
}
void join_thread(std::thread& thread) {
    thread.join();
}

void* map_below_4gib(size_t size) {
    return platform().map_low(size);
}
void unmap(void* memory, size_t size) {
    ::munmap(memory, size);
}
void use_large_pages(void* /*memory*/, size_t /*size*/) {}

}  // namespace os

namespace scripted {

std::thread Platform::start_thread(std::function<void()> body) {
    const std::lock_guard lock(mutex_);
    if (const int error = std::exchange(thread_error_, 0); error != 0) {
        throw std::system_error(error, std::generic_category(), "start_thread");
    }
    return std::thread(std::move(body));
}

// Real memory: a test reaches it by the 32-bit address that the device was given.
void* Platform::map_low(size_t size) {
    if (no_low_memory_) {
        errno = ENOMEM;
        return nullptr;
    }
    return os::map_low_memory(size);
}

}  // namespace scripted

namespace android {

int64_t elapsedRealtimeNano() {
    return platform().now_ns();
}

}  // namespace android

int property_get(const char* key, char* value, const char* default_value) {
    std::string found = platform().property(key);
    if (found.empty() && default_value != nullptr) {
        found = default_value;
    }
    std::memcpy(value, found.c_str(), found.size() + 1);
    return static_cast<int>(found.size());
}

int property_set(const char* key, const char* value) {
    platform().set_property(key, value);
    return 0;
}
