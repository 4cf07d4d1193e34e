// SPDX-License-Identifier: Apache-2.0
#include "sim/packet_words.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace sim {

uint32_t word_at(std::span<const uint8_t> bytes, size_t at) {
    if (at > bytes.size() || bytes.size() - at < 4) return 0;
    uint32_t word = 0;
    for (size_t i = 4; i-- > 0;) word = word << 8 | bytes[at + i];
    return word;
}

void put_word(std::span<uint8_t> bytes, size_t at, uint32_t word) {
    for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<uint8_t>(word >> (8 * i));
}

void append_words(Bytes& bytes, std::initializer_list<uint32_t> words) {
    for (uint32_t word : words) {
        bytes.resize(bytes.size() + 4);
        put_word(bytes, bytes.size() - 4, word);
    }
}

uint32_t crc_of(std::span<const uint8_t> bytes, uint32_t before) {
    // zlib takes a null pointer as a request for the initial value.
    if (bytes.empty()) return before;
    return static_cast<uint32_t>(crc32(before, bytes.data(), static_cast<uInt>(bytes.size())));
}

std::string hex(uint32_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08x", value);
    return text.data();
}

std::string differs(const std::string& field, const std::string& expected, const std::string& got) {
    return field + " expected " + expected + ", got " + got;
}

std::string differs(const std::string& field, uint64_t expected, uint64_t got) {
    return differs(field, std::to_string(expected), std::to_string(got));
}

std::string difference(std::span<const uint8_t> expected, std::span<const uint8_t> got) {
    if (expected.size() != got.size()) return differs("length", expected.size(), got.size());
    const auto [wanted, found] = std::mismatch(expected.begin(), expected.end(), got.begin());
    if (wanted == expected.end()) return "";
    return differs("byte " + std::to_string(wanted - expected.begin()), *wanted, *found);
}

}  // namespace sim
