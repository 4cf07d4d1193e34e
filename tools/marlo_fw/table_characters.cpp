// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/table_characters.h"

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <string>
#include <string_view>

#include "tools/marlo_fw/table_structure.h"
#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

constexpr size_t kLongestEntity = 10;  // "&#1114111;"

// The number behind "&#" or "&#x"; of none, or one that is no character, 0.
unsigned long character_number(const std::string& digits) {
    const bool is_hexadecimal = digits.starts_with("x");
    const unsigned long number =
        std::strtoul(digits.c_str() + (is_hexadecimal ? 1 : 0), nullptr, is_hexadecimal ? 16 : 10);
    return number <= 0x10FFFF && (number < 0xD800 || number > 0xDFFF) ? number : 0;
}

bool is_known_entity(const std::string& text) {
    static const std::regex form("&(amp|lt|gt|quot|apos|#[0-9]{1,7}|#x[0-9a-fA-F]{1,6});");
    std::smatch match;
    if (!std::regex_match(text, match, form)) return false;
    return match[1].str()[0] != '#' || character_number(match[1].str().substr(1)) != 0;
}

// An entity that begins at `at`, or what stands there instead of one.
std::string entity_at(std::string_view text, size_t at) {
    const std::string_view next = text.substr(at, kLongestEntity);
    const size_t end = next.find(';');
    return std::string(end == next.npos ? next : next.substr(0, end + 1));
}

// Where the text goes on behind a piece in which characters are what they are; `at` where none
// begins there.
size_t behind_verbatim(std::string_view text, size_t at) {
    struct Piece {
        std::string_view begin, end;
    };
    constexpr Piece kPieces[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<!", ">"}, {"<?", "?>"}};
    for (const Piece& piece : kPieces) {
        if (!text.substr(at).starts_with(piece.begin)) continue;
        const size_t end = text.find(piece.end, at + piece.begin.size());
        return end == text.npos ? text.size() : end + piece.end.size();
    }
    return at;
}

// Walks through the characters as the daemon's XML library does.
class Scan {
  public:
    explicit Scan(std::string_view text) : text_(text) {}

    void run() {
        constexpr const char* kStops = "&<>\"'";
        for (size_t at = text_.find_first_of(kStops); at < text_.size();
             at = text_.find_first_of(kStops, at)) {
            const size_t behind = is_in_tag_ ? at : behind_verbatim(text_, at);
            if (behind == at) step(at);
            at = std::max(at + 1, behind);
        }
    }

    // The first of each; npos without one.
    size_t unknown_entity = std::string_view::npos;
    size_t needless_end = std::string_view::npos;  // of an element that has not begun

  private:
    // In a tag, what looks like the beginning of a comment is part of an attribute's value.
    void step(size_t at) {
        const char character = text_[at];
        if (character == '&') {
            const bool is_odd = !is_known_entity(entity_at(text_, at));
            if (is_odd) unknown_entity = std::min(unknown_entity, at);
        } else if (quote_ != '\0') {
            if (character == quote_) quote_ = '\0';
        } else if (!is_in_tag_) {
            is_in_tag_ = character == '<';
            tag_ = at;
        } else if (character == '>') {
            is_in_tag_ = false;
            count_tag(at);
        } else if (character != '<') {
            quote_ = character;
        }
    }

    void count_tag(size_t end) {
        const size_t name = std::min(text_.find_first_not_of("< \t\r\n", tag_), end);
        const bool is_end = text_[name] == '/' && name + 1 < end;
        if (is_end && depth_ == 0) needless_end = std::min(needless_end, tag_);
        if (is_end) depth_ -= depth_ == 0 ? 0 : 1;
        if (!is_end && text_[end - 1] != '/') ++depth_;
    }

    std::string_view text_;
    bool is_in_tag_ = false;
    size_t tag_ = 0;  // where it began
    char quote_ = '\0';
    uint64_t depth_ = 0;
};

}  // namespace

void check_characters(std::span<const uint8_t> xml, Findings& findings) {
    const std::string text(xml.begin(), xml.end());
    const auto add = [&](size_t at, const char* code, const std::string& value,
                         const char* consequence) {
        const auto end = text.begin() + static_cast<std::ptrdiff_t>(at);
        const auto line = 1 + std::count(text.begin(), end, '\n');
        findings.add({Area::kTable,
                      code,
                      std::string(kTableFile) + ":" + std::to_string(line),
                      value,
                      consequence,
                      {}});
    };
    if (const size_t nul = text.find('\0'); nul != text.npos) {
        add(nul, "nul-byte", "byte " + std::to_string(nul), "the daemon reads no further");
    }
    Scan scan(text);
    scan.run();
    if (const size_t at = scan.unknown_entity; at != text.npos) {
        add(at, "entity-unknown", in_quotes(entity_at(text, at)),
            "the daemon takes its characters as they are");
    }
    if (const size_t at = scan.needless_end; at != text.npos) {
        add(at, "end-tag-needless", in_quotes(text.substr(at, text.find('>', at) + 1 - at)),
            "the daemon reads no further");
    }
}

}  // namespace marlo_fw
