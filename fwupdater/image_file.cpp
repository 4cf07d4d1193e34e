// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/image_file.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "daemon/marlo_deamon_log.h"
#include "platform/file.h"
#include "platform/os.h"

namespace {

// Whoever made the file chose its size.
std::optional<FileBytes> unfilled(off_t size, const std::string& path) {
    const auto count = static_cast<size_t>(size);
    try {
        if (static_cast<off_t>(count) == size) {
            FileBytes bytes(count);
            if (fills_large_page(bytes.size())) {
                os::use_large_pages(bytes.data(), bytes.size());
            }
            return bytes;
        }
    } catch (const std::bad_alloc&) {
    }
    MARLO_LOG(error, "no memory for the %lld bytes of %s", static_cast<long long>(size),
              path.c_str());
    return std::nullopt;
}

bool can_be_read(const struct stat& status, const std::string& path, off_t most) {
    if (!S_ISREG(status.st_mode)) {
        MARLO_LOG(error, "%s is not a regular file", path.c_str());
        return false;
    }
    if (status.st_size > most) {
        MARLO_LOG(error, "%s has %lld bytes, more than %lld", path.c_str(),
                  static_cast<long long>(status.st_size), static_cast<long long>(most));
        return false;
    }
    return true;
}

}  // namespace

std::optional<FileBytes> read_regular_file(int fd, const std::string& path, off_t most) {
    struct stat status = {};
    if (os::fstat(fd, &status) != 0) {
        MARLO_LOG(error, "%s cannot be examined: %s", path.c_str(), strerror(errno));
        return std::nullopt;
    }
    if (!can_be_read(status, path, most)) {
        return std::nullopt;
    }
    std::optional<FileBytes> bytes = unfilled(status.st_size, path);
    if (bytes) {
        const ssize_t count = os::read_up_to(fd, bytes->data(), bytes->size());
        if (count < 0) {
            MARLO_LOG(error, "%s cannot be read: %s", path.c_str(), strerror(errno));
            return std::nullopt;
        }
        if (static_cast<size_t>(count) < bytes->size()) {
            MARLO_LOG(error, "only %zd of the %zu bytes of %s could be read", count, bytes->size(),
                      path.c_str());
        }
        bytes->cut(static_cast<size_t>(count));
    }
    return bytes;
}

std::optional<FileBytes> read_regular_file(const std::string& path, off_t most) {
    const int fd = os::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        MARLO_LOG(error, "%s cannot be opened: %s", path.c_str(), strerror(errno));
        return std::nullopt;
    }
    std::optional<FileBytes> bytes = read_regular_file(fd, path, most);
    os::close(fd);
    return bytes;
}

std::optional<FileBytes> read_logged_image(const std::string& path, const char* function) {
    MARLO_LOG_FOR(function, debug, "readFile Path : %s", path.c_str());
    std::optional<FileBytes> bytes = read_regular_file(path, kLargestImage);
    if (!bytes) {
        MARLO_LOG_FOR(function, error, "File open failed : %s", path.c_str());
    }
    return bytes;
}
