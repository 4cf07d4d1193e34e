// SPDX-License-Identifier: Apache-2.0
// System properties where there is no property service: one small file each, named after the
// property. The daemon's user and root can read one with cat and set one with echo.
#include <cutils/properties.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/linux/root.h"

namespace {

constexpr std::string_view kPersistentPrefix = "persist.";
constexpr const char* kDirectory = "/run/marlo/properties";
constexpr const char* kPersistentDirectory = "/var/lib/marlo/properties";
constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;

// A name that is a file name, too: no slash, and no leading dot, which marks temporary files.
bool is_valid_name(std::string_view name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos;
}

std::string directory_of(std::string_view name) {
    return os::under_root(name.starts_with(kPersistentPrefix) ? kPersistentDirectory : kDirectory);
}

void make_directories(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        ::mkdir(path.substr(0, slash).c_str(), kDirectoryMode);
    }
    ::mkdir(path.c_str(), kDirectoryMode);
}

// Reads at most a value's length; the newline that echo adds is not part of the value.
std::string read_value(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return {};
    }
    char buffer[PROPERTY_VALUE_MAX];
    const ssize_t count = TEMP_FAILURE_RETRY(::read(fd, buffer, sizeof(buffer)));
    ::close(fd);
    std::string value(buffer, count > 0 ? static_cast<size_t>(count) : 0);
    value.resize(std::strlen(value.c_str()));
    if (value.ends_with('\n')) {
        value.pop_back();
    }
    value.resize(std::min<size_t>(value.size(), PROPERTY_VALUE_MAX - 1));
    return value;
}

bool write_value(const std::string& path, std::string_view value) {
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kFileMode);
    if (fd < 0) {
        return false;
    }
    const ssize_t written = TEMP_FAILURE_RETRY(::write(fd, value.data(), value.size()));
    // A persistent value outlives a power cut that follows the call, or the old one does.
    const bool synced = ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    return written == static_cast<ssize_t>(value.size()) && synced && closed;
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    std::string found;
    if (key != nullptr && is_valid_name(key)) {
        found = read_value(directory_of(key) + "/" + key);
    }
    if (found.empty() && default_value != nullptr) {
        found = std::string(default_value).substr(0, PROPERTY_VALUE_MAX - 1);
    }
    std::memcpy(value, found.c_str(), found.size() + 1);
    return static_cast<int>(found.size());
}

int property_set(const char* key, const char* value) {
    const std::string_view text = value != nullptr ? value : "";
    if (key == nullptr || !is_valid_name(key) || text.size() >= PROPERTY_VALUE_MAX) {
        errno = EINVAL;
        return -1;
    }
    const std::string directory = directory_of(key);
    make_directories(directory);
    // One temporary file for each thread, so that two writers of one property do not mix.
    const std::string temporary =
        directory + "/." + key + "." + std::to_string(static_cast<long>(::gettid()));
    if (!write_value(temporary, text) ||
        ::rename(temporary.c_str(), (directory + "/" + key).c_str()) != 0) {
        const int failure = errno;
        ::unlink(temporary.c_str());
        errno = failure;
        return -1;
    }
    return 0;
}
