// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/text.h"

#include <charconv>

namespace marlo_fw {

std::string printable(std::string_view text, size_t most) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string shown;
    for (const char character : text) {
        if (shown.size() >= most) return shown + "...";
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= ' ' && byte < 0x7F) {
            shown += character;
        } else {
            shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return shown;
}

std::string in_quotes(std::string_view text) {
    return "\"" + printable(text) + "\"";
}

std::string hexadecimal(uint64_t number) {
    char digits[16];
    return "0x" + std::string(digits, std::to_chars(digits, digits + 16, number, 16).ptr);
}

std::string count_of(uint64_t number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string join(const std::vector<std::string>& texts, std::string_view between) {
    std::string joined;
    for (const std::string& text : texts) {
        if (!joined.empty()) joined += between;
        joined += text;
    }
    return joined;
}

}  // namespace marlo_fw
