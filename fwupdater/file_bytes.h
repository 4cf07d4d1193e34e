// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

// What processors with pages of 4 KiB have beside them. Memory that fills one costs a single fault.
constexpr std::align_val_t kLargePage{2 << 20};
constexpr bool fills_large_page(size_t bytes) {
    return bytes >= static_cast<size_t>(kLargePage);
}

// Memory as it comes: what a vector makes room for is not cleared first. Clearing would touch every
// page of an image once more than reading the file does. Much of it begins with a large page.
template <typename Byte>
struct UnfilledAllocator {
    using value_type = Byte;

    // With conditional expressions clang 14 frees the memory twice.
    Byte* allocate(size_t count) {
        if (fills_large_page(count)) {
            return static_cast<Byte*>(::operator new(count, kLargePage));
        }
        return static_cast<Byte*>(::operator new(count));
    }
    void deallocate(Byte* memory, size_t count) noexcept {
        if (fills_large_page(count)) {
            ::operator delete(memory, kLargePage);
        } else {
            ::operator delete(memory);
        }
    }
    void construct(Byte* /*place*/) const noexcept {}
    bool operator==(const UnfilledAllocator&) const = default;

    static_assert(sizeof(Byte) == 1);
};

// What was read of a file. A size that it is made with or resized to says nothing of the contents.
using FileBytes = std::vector<uint8_t, UnfilledAllocator<uint8_t>>;
