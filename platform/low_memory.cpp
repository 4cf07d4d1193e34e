// SPDX-License-Identifier: Apache-2.0
#include "platform/low_memory.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>

namespace os {

void* map_low_memory(size_t size) {
    // The kernel takes an address without MAP_FIXED as a wish: it is granted where it is free.
    // In 32 bits there is nothing to wish: every address will do.
    constexpr uintptr_t kFirst = sizeof(void*) == 4 ? 0 : 0x10000000;
    constexpr uintptr_t kStep = 0x00800000;
    constexpr uintptr_t kLimit = UINT32_MAX;
    for (uintptr_t wish = kFirst; wish <= kLimit - kStep; wish += kStep) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): an address is what is wished for
        void* const address = reinterpret_cast<void*>(wish);
        void* const memory =
            // cppcheck-suppress invalidFunctionArg ; an anonymous mapping has the descriptor -1
            ::mmap(address, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            return nullptr;
        }
        if (reinterpret_cast<uintptr_t>(memory) <= kLimit - size) {
            return memory;
        }
        ::munmap(memory, size);
    }
    errno = ENOMEM;
    return nullptr;
}

}  // namespace os
