// SPDX-License-Identifier: Apache-2.0
#include "sweep/memory_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace sweep {
namespace {

// The one name that a file has: "/a//b/./c" and "/a/b/c/" are "/a/b/c".
std::string normal(const std::string& path) {
    std::string result;
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        const std::string part = path.substr(at, end - at);
        if (!part.empty() && part != ".") result += "/" + part;
        at = end + 1;
    }
    return result;
}

}  // namespace

void MemoryFiles::add_directory(const std::string& path) {
    files_[normal(path)] = std::make_shared<File>(File{{}, S_IFDIR | 0700});
}

void MemoryFiles::add(const std::string& path, Bytes bytes) {
    files_[normal(path)] = std::make_shared<File>(File{std::move(bytes), S_IFREG | 0644});
}

std::shared_ptr<MemoryFiles::File> MemoryFiles::open(const std::string& path, int flags,
                                                     uint32_t mode, int* error) {
    const std::string name = normal(path);
    std::shared_ptr<File> file;
    if (const auto found = files_.find(name); found != files_.end()) file = found->second;
    *error = 0;
    if (file == nullptr) {
        const std::string directory = name.substr(0, name.rfind('/'));
        if ((flags & O_CREAT) == 0 || files_.count(directory) == 0) {
            *error = -ENOENT;
            return nullptr;
        }
        file = std::make_shared<File>(File{{}, S_IFREG | mode});
        files_[name] = file;
        return file;
    }
    const bool is_directory = S_ISDIR(file->mode);
    if ((flags & O_CREAT) != 0 && (flags & O_EXCL) != 0) *error = -EEXIST;
    if (is_directory && (flags & O_ACCMODE) != O_RDONLY) *error = -EISDIR;
    if (!is_directory && (flags & O_DIRECTORY) != 0) *error = -ENOTDIR;
    if (*error != 0) return nullptr;
    if ((flags & O_TRUNC) != 0) file->bytes.clear();
    return file;
}

int MemoryFiles::rename(const std::string& from, const std::string& to) {
    const auto found = files_.find(normal(from));
    if (found == files_.end()) return -ENOENT;
    if (!files_.emplace(normal(to), found->second).second) return -EEXIST;
    files_.erase(found);
    return 0;
}

int MemoryFiles::unlink(const std::string& path) {
    return files_.erase(normal(path)) == 1 ? 0 : -ENOENT;
}

std::shared_ptr<const MemoryFiles::File> MemoryFiles::find(const std::string& path) const {
    const auto found = files_.find(normal(path));
    return found == files_.end() ? nullptr : found->second;
}

std::map<std::string, Bytes> MemoryFiles::in_directory(const std::string& directory) const {
    const std::string prefix = normal(directory) + "/";
    std::map<std::string, Bytes> result;
    for (const auto& [name, file] : files_) {
        if (name.starts_with(prefix) && S_ISREG(file->mode)) {
            result[name.substr(prefix.size())] = file->bytes;
        }
    }
    return result;
}

}  // namespace sweep
