// SPDX-License-Identifier: Apache-2.0
#include "platform/file.h"

#include "platform/os.h"

namespace os {
namespace {

// `step` reads into a place and up to a size, `done` bytes behind the start.
template <typename Step>
ssize_t fill(void* buffer, size_t size, Step step) {
    auto* into = static_cast<char*>(buffer);
    size_t done = 0;
    while (done < size) {
        const ssize_t count = uninterrupted([&] { return step(into + done, size - done, done); });
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

ssize_t read_up_to(int fd, void* buffer, size_t size) {
    return fill(buffer, size,
                [fd](void* into, size_t left, size_t) { return read(fd, into, left); });
}

ssize_t pread_up_to(int fd, void* buffer, size_t size, off_t offset) {
    return fill(buffer, size, [&](void* into, size_t left, size_t done) {
        return pread(fd, into, left, offset + static_cast<off_t>(done));
    });
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

int pwrite_all(int fd, const void* buffer, size_t size, off_t offset) {
    const auto* from = static_cast<const char*>(buffer);
    for (size_t done = 0; done < size;) {
        const ssize_t count = uninterrupted([&] {
            return pwrite(fd, from + done, size - done, offset + static_cast<off_t>(done));
        });
        if (count <= 0) {
            // A write that takes nothing and gives no reason would be repeated for ever.
            errno = count == 0 ? EIO : errno;
            return -1;
        }
        done += static_cast<size_t>(count);
    }
    return 0;
}

}  // namespace os
