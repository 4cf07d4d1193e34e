// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

// What processors with pages of 4 KiB have beside them. Memory that fills one costs a single fault.
constexpr std::align_val_t kLargePage{2 << 20};
constexpr bool fills_large_page(size_t bytes) {
    return bytes >= static_cast<size_t>(kLargePage);
}

struct ReleaseFileBytes {
    size_t size = 0;  // as it was allocated
    void operator()(uint8_t* bytes) const {
        if (fills_large_page(size)) {
            ::operator delete(bytes, kLargePage);
        } else {
            ::operator delete(bytes);
        }
    }
};

// What was read of a file, in memory as it comes: it is not cleared first, which would touch every
// page of an image once more than reading the file does. Much of it begins with a large page.
class FileBytes {
  public:
    FileBytes() = default;
    // The size says nothing of the contents. Throws std::bad_alloc.
    explicit FileBytes(size_t size) : bytes_(allocate(size), ReleaseFileBytes{size}), size_(size) {}
    FileBytes(FileBytes&& other) noexcept
        : bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)) {}
    FileBytes& operator=(FileBytes&& other) noexcept {
        bytes_ = std::move(other.bytes_);
        size_ = std::exchange(other.size_, 0);
        return *this;
    }

    uint8_t* data() { return bytes_.get(); }
    const uint8_t* data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    uint8_t* begin() { return data(); }
    uint8_t* end() { return data() + size_; }
    const uint8_t* begin() const { return data(); }
    const uint8_t* end() const { return data() + size_; }

    // Forgets what is behind the first `size` bytes.
    void cut(size_t size) { size_ = std::min(size_, size); }

  private:
    static uint8_t* allocate(size_t size) {
        // Nobody has that much. In 32 bits a library that rounds it up to the alignment wraps, and
        // gives a small piece instead.
        if (size > PTRDIFF_MAX) {
            throw std::bad_alloc();
        }
        if (fills_large_page(size)) {
            return static_cast<uint8_t*>(::operator new(size, kLargePage));
        }
        return static_cast<uint8_t*>(::operator new(size));
    }

    std::unique_ptr<uint8_t, ReleaseFileBytes> bytes_;
    size_t size_ = 0;
};
