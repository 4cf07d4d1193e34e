// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The whole of the regular file `path`, in one bulk read into exactly its size. Nothing where it
// cannot be opened or read, is not a regular file (a directory, a FIFO), or does not fit into
// memory; only the last is logged here. Never waits for a writer. Safe on any thread.
std::optional<std::vector<uint8_t>> read_regular_file(const std::string& path);

// The same as a step of `function`, in whose name the path is logged, and a file that is not read.
std::optional<std::vector<uint8_t>> read_logged_file(const std::string& path, const char* function);

// The same of a file that is open already; `path` is its name for the log.
std::optional<std::vector<uint8_t>> read_regular_file(int fd, const std::string& path);
