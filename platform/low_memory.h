// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace os {

// How map_below_4gib finds its memory, for the implementations of platform/os.h.
void* map_low_memory(size_t size);

}  // namespace os
