// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <thread>

// Every system call that a test must be able to make fail, every wait and every thread: the rooms
// of the daemon reach the kernel through these alone. Each function has the arguments, the result
// and the errno of the call that it is named after; all are safe on any thread.
//
// Which implementation answers is decided when a program is linked: platform/linux for the
// daemon, the scripted platform (platform/scripted) for tests and fuzz targets, a simulated
// device (sweep/system_calls.cpp) for the sweep, platform/linux with an `open` of its own
// (bench/channel_open.cpp) for the benchmarks.
namespace os {

// What the kernel is handed looks the same whatever the processor. In 32 bits this takes
// _FILE_OFFSET_BITS=64: a partition's file may be larger than what is counted in otherwise.
static_assert(sizeof(off_t) == 8);
static_assert(sizeof(pollfd) == 8 && offsetof(pollfd, events) == 4 &&
              offsetof(pollfd, revents) == 6);

// To be called once, by main, before anything logs: makes the log show every priority, and what the
// process creates its owner's alone, exactly as asked for, whatever the mask that it was started
// with. Large memory that is freed then goes back to the system, where the C library can
// be told so.
void initialize();

// Absolute paths are looked up below the root prefix, where one is set (platform/linux/root.h).
// `mode` counts where `flags` make a new file.
int open(const char* path, int flags, mode_t mode = 0);
int close(int fd);
ssize_t read(int fd, void* buffer, size_t size);
ssize_t pread(int fd, void* buffer, size_t size, off_t offset);
ssize_t write(int fd, const void* buffer, size_t size);
ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset);
int fsync(int fd);
int fdatasync(int fd);
int fstat(int fd, struct stat* status);
int poll(struct pollfd* entries, nfds_t count, int timeout_ms);
// The 32 bits of a request that the kernel looks at; C libraries disagree on the type.
int ioctl(int fd, uint32_t request, void* argument);
int pipe(int ends[2]);
// A rename that replaces nothing (renameat2 with RENAME_NOREPLACE): EEXIST where `to` is there
// already. A file system that cannot tell replaces it.
int rename_to_new(const char* from, const char* to);
int unlink(const char* path);

DIR* opendir(const char* path);
dirent* readdir(DIR* directory);
int closedir(DIR* directory);

unsigned int sleep(unsigned int seconds);
int usleep(useconds_t microseconds);
time_t time();  // wall clock, seconds since the epoch

// A thread that runs `body`. Throws std::system_error where no thread can be had.
std::thread start_thread(std::function<void()> body);
// Waits for the thread's end. Not to be called by the thread itself.
void join_thread(std::thread& thread);

// Zeroed memory whose addresses all lie below 4 GiB, for what a 32-bit address must name. Null
// with errno where there is none. `size` is at most a page.
void* map_below_4gib(size_t size);
void unmap(void* memory, size_t size);

// A hint: this memory, of which all will be written, may be made of large pages (the kernel may
// take a moment to find some). What they have no room in stays as it is.
void use_large_pages(void* memory, size_t size);

}  // namespace os
