// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "fwupdater/file_bytes.h"

// Sizes in bytes. Of an image the co-processor is told in 32 bits; a text that is larger than this
// is no partition table and no version file.
constexpr off_t kLargestImage = UINT32_MAX;
constexpr off_t kLargestText = 16 << 20;

// The whole of the regular file `path`, in one bulk read into exactly its size. Nothing, and a log
// line that says why, where it cannot be opened or read, is not a regular file (a directory, a
// FIFO), has more than `most` bytes, or does not fit into memory. Never waits for a writer. Safe on
// any thread.
std::optional<FileBytes> read_regular_file(const std::string& path, off_t most);

// The same as a step of `function`, in whose name an image's path is logged, and one not read.
std::optional<FileBytes> read_logged_image(const std::string& path, const char* function);

// The same of a file that is open already; `path` is its name for the log.
std::optional<FileBytes> read_regular_file(int fd, const std::string& path, off_t most);
