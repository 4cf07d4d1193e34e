// SPDX-License-Identifier: Apache-2.0
#include "bench/allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> g_allocations = 0;

}  // namespace

namespace bench {

uint64_t allocations() {
    return g_allocations;
}

size_t allocated_bytes() {
    const struct mallinfo2 heap = ::mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

}  // namespace bench

// The forms for arrays and those that do not throw lead here.
void* operator new(size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
