// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>

// Files read and written whole. What the kernel interrupts or does in part is taken up again.
namespace os {

// Reads from `fd` until `size` bytes are there or the file ends: the count, or -1 with errno.
ssize_t read_up_to(int fd, void* buffer, size_t size);

// The same from `offset`, wherever the descriptor stands.
ssize_t pread_up_to(int fd, void* buffer, size_t size, off_t offset);

// Opens `path`, reads up to `size` bytes, closes: the count. -1 with errno where the file cannot be
// opened; one that cannot be read counts as empty.
ssize_t read_file_up_to(const char* path, void* buffer, size_t size);

// Writes all of the bytes to `offset`: 0, or -1 with errno, some of them written perhaps.
int pwrite_all(int fd, const void* buffer, size_t size, off_t offset);

// Makes `call` until a signal does not interrupt it: its result.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace os
