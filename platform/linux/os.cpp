// SPDX-License-Identifier: Apache-2.0
#include "platform/os.h"

#include <android/log.h>
#include <malloc.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

#include "platform/linux/root.h"
#include "platform/low_memory.h"

namespace os {

void initialize() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    ::umask(S_IRWXG | S_IRWXO);
#ifdef M_MMAP_THRESHOLD
    // The usual threshold, but one that stays: otherwise it grows with the first image that is
    // freed, and what later images leave behind may never go back to the system.
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
#endif
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
ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
    return ::pwrite(fd, buffer, size, offset);
}
int fsync(int fd) {
    return ::fsync(fd);
}
int fdatasync(int fd) {
    return ::fdatasync(fd);
}
int fstat(int fd, struct stat* status) {
    return ::fstat(fd, status);
}
int poll(struct pollfd* entries, nfds_t count, int timeout_ms) {
    return ::poll(entries, count, timeout_ms);
}
int ioctl(int fd, uint32_t request, void* argument) {
    return ::ioctl(fd, request, argument);
}
int pipe(int ends[2]) {
    return ::pipe2(ends, O_CLOEXEC);
}
int rename_to_new(const char* from, const char* to) {
    const std::string old_name = under_root(from);
    const std::string new_name = under_root(to);
    const int result =
        ::renameat2(AT_FDCWD, old_name.c_str(), AT_FDCWD, new_name.c_str(), RENAME_NOREPLACE);
    const bool is_unknown = result != 0 && (errno == EINVAL || errno == ENOSYS);
    return is_unknown ? ::rename(old_name.c_str(), new_name.c_str()) : result;
}
int unlink(const char* path) {
    return ::unlink(under_root(path).c_str());
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

std::thread start_thread(std::function<void()> body) {
    return std::thread(std::move(body));
}
void join_thread(std::thread& thread) {
    thread.join();
}

void* map_below_4gib(size_t size) {
    return map_low_memory(size);
}

void unmap(void* memory, size_t size) {
    ::munmap(memory, size);
}

void use_large_pages(void* memory, size_t size) {
    const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const size_t before = (page - reinterpret_cast<uintptr_t>(memory) % page) % page;
    if (size >= before + page) {
        ::madvise(static_cast<char*>(memory) + before, (size - before) / page * page,
                  MADV_HUGEPAGE);
    }
}

}  // namespace os
