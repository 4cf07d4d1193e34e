// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/scripted/scripted_platform.h"

// What the fuzz targets share. A target is one source with LLVMFuzzerTestOneInput: it makes a
// scripted platform, lets the input decide what happens to the product, and says what must hold
// whatever happens.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

using scripted::Bytes;
using scripted::platform;

// Where `holds` is false: prints the line and aborts, which is a finding.
[[gnu::format(printf, 2, 3)]] void must(bool holds, const char* format, ...);

// Begins an input: a new, empty platform whose log lines are counted instead of kept. They are
// shown where the environment has FUZZ_LOG.
void begin();

// Log lines since begin().
size_t log_lines();

// References on the wakelock that were taken since begin() and not given back.
int wakelocks_held();

// An input, eaten from both ends: decisions, a byte each, from its back, what is received from
// its front. Each side has its own stream then, and a change of one does not shift the other.
// Compilers differ in which argument of a call they take first: one decision a statement.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : bytes_(data, size) {}

    bool empty() const { return bytes_.empty(); }

    // The next decision, below `count` (1 to 256); 0 once the input is used up.
    uint32_t below(uint32_t count);
    bool flip() { return below(2) == 1; }
    template <typename Value, size_t count>
    Value pick(const Value (&values)[count]) {
        return values[below(count)];
    }

    // The next contents: `size` bytes, or as many as are left.
    std::span<const uint8_t> take(size_t size);
    std::string text(size_t size);
    uint32_t word();  // little-endian; bytes that are not there are 0

  private:
    std::span<const uint8_t> bytes_;
};

// A copy in memory of exactly its size, so that a read past it shows.
class ExactCopy {
  public:
    explicit ExactCopy(std::span<const uint8_t> bytes);

    uint8_t* data() { return memory_.get(); }
    uint32_t size() const { return size_; }

  private:
    uint32_t size_;
    std::unique_ptr<uint8_t[]> memory_;
};

// CRC-32 of pieces that follow each other: zlib's, so that a mistake of the product's shows.
uint32_t crc_of(std::initializer_list<std::span<const uint8_t>> pieces);

bool all_zero(std::span<const uint8_t> bytes);

uint32_t word_at(std::span<const uint8_t> bytes, size_t offset);
void append_word(Bytes& bytes, uint32_t value);

// `size` bytes that differ from place to place.
Bytes pattern(size_t size);
std::string text_of(std::span<const uint8_t> bytes);

}  // namespace fuzz
