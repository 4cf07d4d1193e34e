// SPDX-License-Identifier: Apache-2.0
#include "tests/allocation_limit.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> g_limit{SIZE_MAX};

}  // namespace

AllocationLimit::AllocationLimit(size_t bytes) {
    g_limit = bytes;
}

AllocationLimit::~AllocationLimit() {
    g_limit = SIZE_MAX;
}

void* operator new(size_t size) {
    void* const memory = size > g_limit ? nullptr : std::malloc(size == 0 ? 1 : size);
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
