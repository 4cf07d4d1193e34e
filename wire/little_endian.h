// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Little-endian integers in byte buffers: every message and every ELF field is read and written
// through these, never through a cast. Nothing is ever read or written past a buffer.
namespace wire {

// The 32-bit word at `offset` of `bytes`. Bytes beyond the end read as 0.
inline uint32_t word_at(std::span<const uint8_t> bytes, size_t offset) {
    const size_t left = offset < bytes.size() ? bytes.size() - offset : 0;
    uint32_t value = 0;
    for (size_t index = 0; index < 4 && index < left; ++index) {
        value |= static_cast<uint32_t>(bytes[offset + index]) << (8 * index);
    }
    return value;
}

// Stores `value` at `offset`. False, and nothing stored, where the word would not fit.
inline bool put_word_at(std::span<uint8_t> bytes, size_t offset, uint32_t value) {
    if (offset > bytes.size() || bytes.size() - offset < 4) {
        return false;
    }
    for (size_t index = 0; index < 4; ++index) {
        bytes[offset + index] = static_cast<uint8_t>(value >> (8 * index));
    }
    return true;
}

// A cursor that reads integers one after the other. Once it has overrun the buffer it stays
// failed and yields 0, so that a whole record can be read before one check of failed().
class Reader {
  public:
    explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    uint16_t u16() { return static_cast<uint16_t>(integer(2)); }
    uint32_t u32() { return static_cast<uint32_t>(integer(4)); }
    uint64_t u64() { return integer(8); }
    void skip(size_t count);
    bool failed() const { return failed_; }

  private:
    uint64_t integer(size_t width);

    std::span<const uint8_t> bytes_;
    size_t position_ = 0;
    bool failed_ = false;
};

// Appends to a byte vector, which grows as needed and keeps its capacity when it is reused.
class Writer {
  public:
    explicit Writer(std::vector<uint8_t>& into) : into_(into) {}

    Writer& u16(uint16_t value);
    Writer& u32(uint32_t value);
    Writer& bytes(std::span<const uint8_t> from);

  private:
    std::vector<uint8_t>& into_;
};

}  // namespace wire
