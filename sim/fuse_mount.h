// SPDX-License-Identifier: Apache-2.0
// One mounted file tree.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "sim/file_tree.h"

namespace sim {

// The machine cannot mount; the text says what to install or enable.
class MountError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Largest number of bytes that the kernel hands over as one write and asks for in one read,
// wherever the caller's buffer begins: libfuse's buffer of 256 pages less one page.
inline constexpr size_t kLargestTransfer = size_t{255} * 4096;

// Mounts at construction, unmounts at destruction. The session's thread must not touch a path below
// the mount point in between: it would wait for itself.
class FuseMount {
  public:
    // `tree` must outlive the mount. Throws MountError.
    FuseMount(const std::filesystem::path& mount_point, const FileTree& tree);
    ~FuseMount();
    FuseMount(const FuseMount&) = delete;
    FuseMount& operator=(const FuseMount&) = delete;

    int descriptor() const;  // readable when a request waits

    // Takes one request, if there is one, without waiting. kUnmounted: by somebody else.
    enum class Received { kRequest, kNothing, kUnmounted };
    Received receive();
    // Hands the request that receive() took to its file.
    void answer();

  private:
    const FileTree& tree_;
    fuse_session* session_ = nullptr;
    fuse_buf buffer_{};  // grown by libfuse, reused for each request
};

}  // namespace sim
