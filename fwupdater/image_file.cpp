// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/image_file.h"

#include <stdexcept>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "platform/file.h"
#include "platform/os.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Whoever made the file chose its size.
std::optional<Bytes> zeros(off_t size, const std::string& path) {
    try {
        if (std::in_range<size_t>(size)) {
            return Bytes(static_cast<size_t>(size));
        }
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    MARLO_LOG(error, "no memory for the %lld bytes of %s", static_cast<long long>(size),
              path.c_str());
    return std::nullopt;
}

}  // namespace

std::optional<Bytes> read_regular_file(int fd, const std::string& path) {
    struct stat status = {};
    if (os::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::optional<Bytes> bytes = zeros(status.st_size, path);
    if (bytes) {
        const ssize_t count = os::read_up_to(fd, bytes->data(), bytes->size());
        if (count < 0) {
            return std::nullopt;
        }
        if (static_cast<size_t>(count) < bytes->size()) {
            MARLO_LOG(error, "only %zd of the %zu bytes of %s could be read", count, bytes->size(),
                      path.c_str());
        }
        bytes->resize(static_cast<size_t>(count));
    }
    return bytes;
}

std::optional<Bytes> read_logged_file(const std::string& path, const char* function) {
    MARLO_LOG_FOR(function, debug, "readFile Path : %s", path.c_str());
    std::optional<Bytes> bytes = read_regular_file(path);
    if (!bytes) {
        MARLO_LOG_FOR(function, error, "File open failed : %s", path.c_str());
    }
    return bytes;
}

std::optional<Bytes> read_regular_file(const std::string& path) {
    const int fd = os::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    std::optional<Bytes> bytes = read_regular_file(fd, path);
    os::close(fd);
    return bytes;
}
