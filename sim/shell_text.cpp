// SPDX-License-Identifier: Apache-2.0
#include "sim/shell_text.h"

namespace sim {

std::string shell_quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string shell_word(const std::string& text) {
    constexpr const char* kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
    const bool plain = !text.empty() && text.find_first_not_of(kPlain) == text.npos;
    return plain ? text : shell_quoted(text);
}

}  // namespace sim
