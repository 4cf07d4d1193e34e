// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <string>
#include <string_view>

// The text of a report, joined from texts and decimal numbers.
namespace report_text {

inline void append(std::string& text, std::string_view piece) {
    text += piece;
}

// Whole numbers in decimal, real ones with six fractional digits.
template <typename Number>
requires std::integral<Number> || std::floating_point<Number>
void append(std::string& text, Number number) {
    text += std::to_string(number);
}

template <typename... Pieces>
std::string join(const Pieces&... pieces) {
    std::string text;
    (append(text, pieces), ...);
    return text;
}

}  // namespace report_text
