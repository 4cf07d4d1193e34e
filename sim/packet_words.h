// SPDX-License-Identifier: Apache-2.0
// What the messages of all channels are made of: little-endian words, and CRC-32.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

#include "sim/observer.h"

namespace sim {

// The word at byte `at`; 0 where the bytes end before.
uint32_t word_at(std::span<const uint8_t> bytes, size_t at);

// The word at byte `at`, which the bytes have.
void put_word(std::span<uint8_t> bytes, size_t at, uint32_t word);

void append_words(Bytes& bytes, std::initializer_list<uint32_t> words);

// The CRC of `bytes`, or of what came before and `bytes`, given the CRC of what came before.
uint32_t crc_of(std::span<const uint8_t> bytes, uint32_t before = 0);

// "0x00002000"
std::string hex(uint32_t value);

// "field expected 1, got 2", for failed checks.
std::string differs(const std::string& field, const std::string& expected, const std::string& got);
std::string differs(const std::string& field, uint64_t expected, uint64_t got);

// Empty if both are the same, else the first difference in words.
std::string difference(std::span<const uint8_t> expected, std::span<const uint8_t> got);

}  // namespace sim
