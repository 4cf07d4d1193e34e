// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/version_line.h"

#include <cstddef>

namespace {

constexpr std::string_view kSeparator = "\": \"";
constexpr size_t kNowhere = std::string_view::npos;

// What stands to the right of a position, as far as the second group has to know it.
struct RightHandSide {
    size_t ampersand = kNowhere;   // the next one; the second group cannot reach beyond it
    size_t last_quote = kNowhere;  // the last one before that ampersand, or before the line's end

    void step(std::string_view line, size_t position) {
        if (line[position] == '&') {
            ampersand = position;
            last_quote = kNowhere;
        } else if (line[position] == '"' && last_quote == kNowhere) {
            last_quote = position;
        }
    }

    // The longest value that begins at `begin` and is closed by a quote or by `&"`.
    std::optional<std::string_view> value(std::string_view line, size_t begin) const {
        if (ampersand != kNowhere && line.substr(ampersand + 1).starts_with('"')) {
            return line.substr(begin, ampersand - begin);
        }
        if (last_quote != kNowhere && last_quote >= begin) {
            return line.substr(begin, last_quote - begin);
        }
        return std::nullopt;
    }
};

}  // namespace

// Walks from the line's end to its beginning. A match lies, up to its separator, between two
// equals signs; the leftmost such stretch that holds a match wins, and within it the rightmost
// separator with a value behind it and any quote before it (the leftmost quote opens the match,
// but which one it is makes no difference to the value).
std::optional<std::string_view> version_value(std::string_view line) {
    RightHandSide right;
    std::optional<std::string_view> found;
    std::optional<std::string_view> candidate;  // of this stretch; wants a quote before it
    for (size_t position = line.size(); position != 0;) {
        --position;
        const bool quote = line[position] == '"';
        if (line[position] == '=') {
            candidate.reset();
        } else if (quote && candidate) {
            found = candidate;
        } else if (quote && line.substr(position).starts_with(kSeparator)) {
            candidate = right.value(line, position + kSeparator.size());
        }
        right.step(line, position);
    }
    return found;
}

marlo_meta_info parse_version_file(std::string_view text) {
    marlo_meta_info info;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
        const auto assign = [line](std::string_view key, std::string& field) {
            if (line.find(key) != kNowhere) {
                if (const auto value = version_value(line)) {
                    field = *value;
                }
            }
        };
        assign("apps_cochip", info.apps_cochip);
        assign("btfw_cochip", info.btfw_cochip);
        assign("dsp_cochip", info.dsp_cochip);
    }
    return info;
}
