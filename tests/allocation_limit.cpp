// SPDX-License-Identifier: Apache-2.0
#include "tests/allocation_limit.h"

#include <malloc.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> g_limit{SIZE_MAX};
thread_local size_t t_allocations = 0;
constexpr size_t kLargeBlock = 65536;
std::atomic<size_t> g_bytes_in_large_blocks = 0;

// As it was made, with what the allocator added.
size_t counted_size(void* memory) {
    const size_t size = malloc_usable_size(memory);
    return size < kLargeBlock ? 0 : size;
}

void* counted(void* memory) {
    g_bytes_in_large_blocks += counted_size(memory);
    return memory;
}

void release(void* memory) {
    g_bytes_in_large_blocks -= counted_size(memory);
    std::free(memory);
}

}  // namespace

size_t allocations_of_this_thread() {
    return t_allocations;
}

size_t bytes_in_large_blocks() {
    return g_bytes_in_large_blocks;
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
    return size > g_limit ? nullptr : counted(std::malloc(size == 0 ? 1 : size));
}

void* operator new(size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    release(memory);
}

void operator delete(void* memory, size_t) noexcept {
    release(memory);
}

// The forms for what begins at a multiple of a size.
void* operator new(size_t size, std::align_val_t alignment) {
    const auto step = static_cast<size_t>(alignment);
    void* const memory = size > g_limit
                             ? nullptr
                             : counted(std::aligned_alloc(step, (size + step - 1) / step * step));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept {
    release(memory);
}

// The forms for arrays, which a sanitizer would otherwise provide.
void* operator new[](size_t size) {
    return operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

void operator delete[](void* memory) noexcept {
    release(memory);
}

void operator delete[](void* memory, size_t) noexcept {
    release(memory);
}
