// SPDX-License-Identifier: Apache-2.0
#include "platform/file.h"

#include <cerrno>

#include "platform/os.h"

namespace os {

ssize_t read_up_to(int fd, void* buffer, size_t size) {
    auto* into = static_cast<char*>(buffer);
    size_t total = 0;
    while (total < size) {
        const ssize_t count = read(fd, into + total, size - total);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        total += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(total);
}

ssize_t read_file_up_to(const char* path, void* buffer, size_t size) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    const ssize_t count = read_up_to(fd, buffer, size);
    close(fd);
    return count < 0 ? 0 : count;
}

}  // namespace os
