// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstddef>

// Small kernel files (sysfs), read whole.
namespace os {

// Reads from `fd` until `size` bytes are there or the file ends: the count, or -1 with errno. An
// interrupted read is taken up again.
ssize_t read_up_to(int fd, void* buffer, size_t size);

// Opens `path`, reads up to `size` bytes, closes: the count. -1 with errno where the file cannot be
// opened; one that cannot be read counts as empty.
ssize_t read_file_up_to(const char* path, void* buffer, size_t size);

}  // namespace os
