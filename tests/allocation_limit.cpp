// SPDX-License-Identifier: Apache-2.0
#include "tests/allocation_limit.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> g_limit{SIZE_MAX};
thread_local size_t t_allocations = 0;

}  // namespace

size_t allocations_of_this_thread() {
    return t_allocations;
}

AllocationLimit::AllocationLimit(size_t bytes) {
    g_limit = bytes;
}

AllocationLimit::~AllocationLimit() {
    g_limit = SIZE_MAX;
}

// The linker leads the program's calls of calloc here (--wrap).
extern "C" void* __real_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size) {
    return size != 0 && count > g_limit / size ? nullptr : __real_calloc(count, size);
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    ++t_allocations;
    return size > g_limit ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new(size_t size) {
    void* const memory = operator new(size, std::nothrow);
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

// The forms for what begins at a multiple of a size.
void* operator new(size_t size, std::align_val_t alignment) {
    const auto step = static_cast<size_t>(alignment);
    void* const memory =
        size > g_limit ? nullptr : std::aligned_alloc(step, (size + step - 1) / step * step);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}

// The forms for arrays, which a sanitizer would otherwise provide.
void* operator new[](size_t size) {
    return operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}
