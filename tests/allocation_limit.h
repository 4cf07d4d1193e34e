// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

// How many allocations the calling thread has made so far, in the test program that links it.
size_t allocations_of_this_thread();

// Bytes in blocks of at least 64 KiB that the program has allocated and not freed.
size_t bytes_in_large_blocks();

// Lets every allocation above a size fail while it lives, in the test program that links it.
class AllocationLimit {
  public:
    explicit AllocationLimit(size_t bytes);
    ~AllocationLimit();
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};
