// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <charconv>
#include <string>
#include <string_view>
#include <type_traits>

// The text of a report, joined from texts and decimal numbers.
namespace report_text {

// Nearly every report is shorter, and so takes one allocation.
inline constexpr size_t kUsualLength = 63;

inline void append(std::string& text, std::string_view piece) {
    text += piece;
}

// Fractions with six digits.
template <typename Number>
requires std::is_arithmetic_v<Number>
void append(std::string& text, Number number) {
    if constexpr (std::is_floating_point_v<Number>) {
        text += std::to_string(number);
    } else {
        char digits[20];  // of the longest 64-bit number, its sign included
        text.append(digits, std::to_chars(digits, digits + sizeof(digits), number).ptr);
    }
}

template <typename... Pieces>
std::string join(const Pieces&... pieces) {
    std::string text;
    text.reserve(kUsualLength);
    (append(text, pieces), ...);
    return text;
}

}  // namespace report_text
