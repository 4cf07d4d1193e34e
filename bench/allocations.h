// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

// How often this process, all its threads, has called operator new so far.
uint64_t allocations();

// Bytes that are allocated now.
size_t allocated_bytes();

}  // namespace bench
