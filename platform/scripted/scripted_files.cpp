// SPDX-License-Identifier: Apache-2.0
// The scripted platform's files: how they come to be, get other names, and go.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/scripted/scripted_platform.h"

namespace scripted {

Platform::File& Platform::made(const std::string& path) {
    Node& node = nodes_[path];
    if (node.file == nullptr) {
        node.file = std::make_shared<File>();
        node.file->id = ++files_made_;
        observe({.kind = DiskChange::Kind::created, .file = node.file->id, .path = path});
    }
    return *node.file;
}

void Platform::on_disk_change(DiskObserver observer) {
    const std::lock_guard lock(mutex_);
    disk_observer_ = std::move(observer);
}

void Platform::observe(const DiskChange& change) const {
    if (disk_observer_) {
        disk_observer_(change);
    }
}

bool Platform::exists(const std::string& path) const {
    const auto found = nodes_.find(path);
    return found != nodes_.end() && found->second.file != nullptr;
}

// Whether there is a directory for `path` to be in.
bool Platform::has_directory(const std::string& path) const {
    const std::string directory = path.substr(0, path.rfind('/'));
    return exists(directory) || exists(directory + "/");
}

int Platform::open_error(const std::string& path, int flags) {
    if (auto& errors = nodes_[path].open_errors; !errors.empty()) {
        const int error = errors.front();
        errors.pop_front();
        ++failures_;
        return error;
    }
    const bool creates = (flags & O_CREAT) != 0;
    if (!exists(path)) {
        return creates && has_directory(path) ? 0 : ENOENT;
    }
    if (creates && (flags & O_EXCL) != 0) {
        return EEXIST;
    }
    const bool is_directory = S_ISDIR(nodes_[path].file->mode);
    if (is_directory && (flags & O_ACCMODE) != O_RDONLY) {
        return EISDIR;
    }
    return !is_directory && (flags & O_DIRECTORY) != 0 ? ENOTDIR : 0;
}

// What the call comes to: the error that a test wants of it, else `error`, else success.
int Platform::finish_call(const std::string& call, int error) {
    if (const auto found = call_errors_.find(call); found != call_errors_.end()) {
        error = found->second.front();
        ++failures_;
        found->second.pop_front();
        if (found->second.empty()) {
            call_errors_.erase(found);
        }
    }
    note(error == 0 ? call : call + " = -1 " + std::to_string(error));
    errno = error != 0 ? error : errno;
    return error != 0 ? -1 : 0;
}

void Platform::store(Descriptor& descriptor, const Bytes& bytes, std::optional<int64_t> offset) {
    Bytes& contents = descriptor.file->contents;
    const size_t start = offset ? static_cast<size_t>(*offset) : descriptor.position;
    contents.resize(std::max(contents.size(), start + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), contents.begin() + static_cast<ptrdiff_t>(start));
    descriptor.position += offset ? 0 : bytes.size();
    observe({.kind = DiskChange::Kind::written,
             .file = descriptor.file->id,
             .path = descriptor.path,
             .offset = start,
             .bytes = bytes});
}

int Platform::sync(const std::string& call, int fd) {
    const std::lock_guard lock(mutex_);
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) {
        errno = EBADF;
        return -1;
    }
    const Descriptor& descriptor = found->second;
    const int result = finish_call(call + " " + descriptor.path, 0);
    if (result == 0) {
        observe({.kind = DiskChange::Kind::synced,
                 .file = descriptor.file->id,
                 .path = descriptor.path});
    }
    return result;
}

int Platform::rename(const std::string& from, const std::string& to) {
    const std::lock_guard lock(mutex_);
    int error = exists(from) && has_directory(to) ? 0 : ENOENT;
    if (error == 0 && exists(to)) {
        error = EEXIST;
    }
    const int result = finish_call("rename " + from + " " + to, error);
    if (result == 0) {
        nodes_[to].file = std::exchange(nodes_[from].file, nullptr);
        observe({.kind = DiskChange::Kind::renamed,
                 .file = nodes_[to].file->id,
                 .path = from,
                 .new_path = to});
    }
    return result;
}

int Platform::unlink(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const int result = finish_call("unlink " + path, exists(path) ? 0 : ENOENT);
    if (result == 0) {
        nodes_[path].file = nullptr;
        observe({.kind = DiskChange::Kind::unlinked, .path = path});
    }
    return result;
}

}  // namespace scripted
