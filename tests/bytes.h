// SPDX-License-Identifier: Apache-2.0
// Bytes of messages, as the tests write and read them: apart from the product's own reading and
// writing, so that a mistake there shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<uint8_t>;

// "5d cc 1f96" in bytes; spaces only group.
inline Bytes from_hex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    for (const char digit : text) {
        if (digit == ' ') {
            continue;
        }
        const int value = digit <= '9' ? digit - '0' : digit - 'a' + 10;
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    return bytes;
}

// The bytes from `offset` on as " 42 43".
inline std::string hex_text(const Bytes& bytes, size_t offset) {
    std::string text;
    char digits[4];
    for (; offset < bytes.size(); ++offset) {
        snprintf(digits, sizeof(digits), " %02x", bytes[offset]);
        text += digits;
    }
    return text;
}

inline uint32_t word(const Bytes& bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t index = 0; index < 4; ++index) {
        value |= uint32_t{bytes.at(offset + index)} << (8 * index);
    }
    return value;
}

inline void append_word(Bytes& bytes, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

// The words of `bytes` in [from, to) as " 7 0 3".
inline std::string words_text(const Bytes& bytes, size_t from, size_t to) {
    std::string text;
    for (; from + 4 <= to; from += 4) {
        text += " " + std::to_string(word(bytes, from));
    }
    return text;
}
