// SPDX-License-Identifier: Apache-2.0
#include "rma/backing_file.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "platform/file.h"
#include "platform/os.h"

namespace {

// A partition file until it is whole. Partitions are named by digits alone, so none has this name;
// what a power cut left of an earlier one is overwritten.
constexpr const char* kUnfinishedPath = "/data/vendor/aon/unfinished";

// The daemon's alone: it is another processor's memory, and nobody else has to know what is in it.
constexpr mode_t kOwnerOnly = 0600;

// O_NOFOLLOW: a symbolic link leads out of the directory, or to another partition. O_NONBLOCK:
// whatever else has the name, opening it waits for nobody.
constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

int open_regular_file(const char* path, int flags, struct stat* status) {
    const int fd = os::open(path, flags | kFlags, kOwnerOnly);
    if (fd >= 0 && (os::fstat(fd, status) != 0 || !S_ISREG(status->st_mode))) {
        os::close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

bool synced(int fd) {
    return os::uninterrupted([fd] { return os::fsync(fd); }) == 0;
}

Creation write_zeros(int fd, uint32_t size) {
    const std::unique_ptr<void, decltype(&std::free)> zeros(std::calloc(size, 1), &std::free);
    if (zeros == nullptr && size > 0) {
        return Creation::no_memory;
    }
    const bool is_whole = os::pwrite_all(fd, zeros.get(), size, 0) == 0 && synced(fd);
    return is_whole ? Creation::created : Creation::not_written;
}

// For what has failed: errno stays.
void remove_file(const char* path) {
    const int error = errno;
    os::unlink(path);
    errno = error;
}

}  // namespace

std::string backing_file_name(uint32_t first, uint32_t second, uint32_t third) {
    return std::to_string(first) + std::to_string(second) + std::to_string(third);
}

bool sync_backing_directory() {
    const int fd = os::open(backing_file_directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    // EINVAL: a file system that syncs no directories.
    const bool done = synced(fd) || errno == EINVAL;
    const int error = errno;
    os::close(fd);
    errno = error;
    return done;
}

Creation create_backing_file(const std::string& path, uint32_t size) {
    const int existing = os::open(path.c_str(), O_RDONLY | kFlags);
    if (existing >= 0) {
        os::close(existing);
        return Creation::exists;
    }
    if (errno != ENOENT) {
        return Creation::not_opened;
    }
    struct stat status = {};
    const int fd = open_regular_file(kUnfinishedPath, O_WRONLY | O_CREAT | O_TRUNC, &status);
    if (fd < 0) {
        return Creation::not_opened;
    }
    const Creation outcome = write_zeros(fd, size);
    const int error = errno;
    os::close(fd);
    errno = error;
    if (outcome != Creation::created || os::rename_to_new(kUnfinishedPath, path.c_str()) != 0) {
        remove_file(kUnfinishedPath);
        if (outcome != Creation::created) {
            return outcome;
        }
        return errno == EEXIST ? Creation::exists : Creation::not_written;
    }
    if (!sync_backing_directory()) {
        remove_file(path.c_str());
        return Creation::not_written;
    }
    return Creation::created;
}

BackingFile::BackingFile(const std::string& path, int access) {
    struct stat status = {};
    fd_ = open_regular_file(path.c_str(), access, &status);
    size_ = static_cast<uint64_t>(status.st_size);
}

BackingFile::~BackingFile() {
    if (is_open()) {
        os::close(fd_);
    }
}

bool BackingFile::contains(uint32_t offset, uint32_t size) const {
    return offset <= size_ && size <= size_ - offset;
}

bool BackingFile::read(uint32_t offset, std::span<uint8_t> into) const {
    // An offset behind the end may be more than the system can express.
    if (offset >= size_) {
        return true;
    }
    const auto present = static_cast<size_t>(std::min<uint64_t>(into.size(), size_ - offset));
    const ssize_t count = os::pread_up_to(fd_, into.data(), present, off_t{offset});
    if (count >= 0 && static_cast<size_t>(count) < present) {
        errno = EIO;  // zeros must not pass for what was written there
        return false;
    }
    return count >= 0;
}

bool BackingFile::write(uint32_t offset, const char* data, uint32_t size) const {
    return os::pwrite_all(fd_, data, size, off_t{offset}) == 0 &&
           os::uninterrupted([this] { return os::fdatasync(fd_); }) == 0;
}
