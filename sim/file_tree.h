// SPDX-License-Identifier: Apache-2.0
// The files that a mount shows, independent of where it is mounted.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#define FUSE_USE_VERSION 314
#include <fuse_lowlevel.h>

namespace sim {

// One file. The mount calls these from the session's thread; each request must be answered exactly
// once with fuse_reply_*, at once or later. The defaults refuse.
class File {
  public:
    // `permissions`: the lower nine bits of the mode. A `stream` has no position to seek to.
    enum class Access { kSeekable, kStream };
    explicit File(mode_t permissions, Access access = Access::kSeekable)
        : permissions_(permissions), access_(access) {}
    virtual ~File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    mode_t permissions() const { return permissions_; }
    bool stream() const { return access_ == Access::kStream; }

    // 0, or the negated errno that the caller's open fails with. Each 0 is followed by one release.
    virtual int open() { return 0; }
    virtual void release() {}
    virtual void read(fuse_req_t request, size_t size, off_t offset, bool non_blocking);
    virtual void write(fuse_req_t request, std::span<const char> data);
    virtual void ioctl(fuse_req_t request, uint32_t command, std::span<const uint8_t> input,
                       size_t output_size);
    // `handle` is null when the caller does not wait; otherwise the file owns it.
    virtual void poll(fuse_req_t request, fuse_pollhandle* handle);

  private:
    mode_t permissions_;
    Access access_;
};

// Directories and files by inode number. Complete before it is mounted, never changed afterwards.
class FileTree {
  public:
    struct Node {
        std::string name;
        fuse_ino_t parent;
        std::map<std::string, fuse_ino_t, std::less<>> children;  // of a directory
        std::unique_ptr<File> file;                               // null: a directory
    };

    FileTree();
    // Puts `file` at `path` ("class/remoteproc/remoteproc0/name"); missing directories are made.
    File& add(std::string_view path, std::unique_ptr<File> file);

    const Node* find(fuse_ino_t inode) const;                             // null: no such inode
    fuse_ino_t child(fuse_ino_t directory, std::string_view name) const;  // 0: no such name

  private:
    fuse_ino_t add_node(fuse_ino_t parent, std::string_view name);

    std::vector<Node> nodes_;  // the node of inode i is at i - FUSE_ROOT_ID
};

}  // namespace sim
