// SPDX-License-Identifier: Apache-2.0
#include "platform/os.h"

#include <android/log.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "platform/linux/root.h"

namespace os {

void initialize() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

int open(const char* path, int flags) {
    return ::open(under_root(path).c_str(), flags);
}
int close(int fd) {
    return ::close(fd);
}
ssize_t read(int fd, void* buffer, size_t size) {
    return ::read(fd, buffer, size);
}
ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
    return ::pread(fd, buffer, size, offset);
}
ssize_t write(int fd, const void* buffer, size_t size) {
    return ::write(fd, buffer, size);
}
int fstat(int fd, struct stat* status) {
    return ::fstat(fd, status);
}
int poll(struct pollfd* entries, nfds_t count, int timeout_ms) {
    return ::poll(entries, count, timeout_ms);
}
int ioctl(int fd, unsigned long request, void* argument) {
    return ::ioctl(fd, request, argument);
}
int pipe(int ends[2]) {
    return ::pipe2(ends, O_CLOEXEC);
}

DIR* opendir(const char* path) {
    return ::opendir(under_root(path).c_str());
}
dirent* readdir(DIR* directory) {
    return ::readdir(directory);
}
int closedir(DIR* directory) {
    return ::closedir(directory);
}

unsigned int sleep(unsigned int seconds) {
    return ::sleep(seconds);
}
int usleep(useconds_t microseconds) {
    return ::usleep(microseconds);
}
time_t time() {
    return ::time(nullptr);
}

void* map_below_4gib(size_t size) {
    // The kernel takes an address without MAP_FIXED as a wish: it is granted where it is free.
    constexpr uintptr_t kFirst = 0x10000000;
    constexpr uintptr_t kStep = 0x00800000;
    constexpr uintptr_t kLimit = UINT32_MAX;
    for (uintptr_t wish = kFirst; wish <= kLimit - kStep; wish += kStep) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): an address is what is wished for
        void* const address = reinterpret_cast<void*>(wish);
        void* const memory =
            ::mmap(address, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            return nullptr;
        }
        if (reinterpret_cast<uintptr_t>(memory) <= kLimit - size) {
            return memory;
        }
        ::munmap(memory, size);
    }
    errno = ENOMEM;
    return nullptr;
}

void unmap(void* memory, size_t size) {
    ::munmap(memory, size);
}

}  // namespace os
