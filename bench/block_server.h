// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>

namespace bench {

// Serves a partition (bench/block_coprocessor.h) on a thread of its own, from construction to
// destruction. What makes one throws std::runtime_error.
class BlockServer {
  public:
    virtual ~BlockServer() = default;
};

// Makes the partition's file, and brings it to the disk.
void make_partition(const std::filesystem::path& directory);

// The real service on the real transport, which opens the file in `directory`. One at a time.
std::unique_ptr<BlockServer> serve_by_daemon(int channel, const std::filesystem::path& directory);

// poll, read the request, pread behind the answer's head or pwrite and fdatasync, CRC by
// libdeflate, one write. The file stays open; no name, no look at it, no check, no log, no
// wakelock.
std::unique_ptr<BlockServer> serve_barely(int channel, const std::filesystem::path& directory);

}  // namespace bench
