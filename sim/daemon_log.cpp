// SPDX-License-Identifier: Apache-2.0
#include "sim/daemon_log.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

// The daemon never writes such lines; without a limit a broken one could fill the memory.
constexpr size_t kLongestLine = 65536;

// The next word and what follows the blanks before it; empty at the end.
std::string_view take_word(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const size_t length = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, length);
    text.remove_prefix(length);
    return word;
}

// `shape`: '0' stands for a digit, any other character for itself.
bool has_shape(std::string_view word, std::string_view shape) {
    return std::equal(word.begin(), word.end(), shape.begin(), shape.end(),
                      [](char c, char s) { return s == '0' ? c >= '0' && c <= '9' : c == s; });
}

bool is_number(std::string_view word) {
    return !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
}

// What a runtime says before it ends the program: never the rest of a message.
bool tells_of_an_end(std::string_view line) {
    for (const char* words : {"error", "ERROR", "***", "terminate", "abort", "Assert", "()"}) {
        if (line.find(words) != std::string_view::npos) return true;
    }
    return false;
}

}  // namespace

LogLine parse_log_line(std::string_view line) {
    std::string_view rest = line;
    const std::string_view tag = take_word(rest);
    const std::string_view priority = take_word(rest);
    const std::string_view date = take_word(rest);
    const std::string_view time = take_word(rest);
    const std::string_view process = take_word(rest);
    const std::string_view thread = take_word(rest);
    if (priority.size() != 1 || !has_shape(date, "00-00") || !has_shape(time, "00:00:00") ||
        !is_number(process) || !is_number(thread)) {
        return {'?', "", std::string(line)};
    }
    if (!rest.empty()) rest.remove_prefix(1);
    return {priority.front(), std::string(tag), std::string(rest)};
}

LogLine LogParser::parse(std::string_view line) {
    LogLine parsed = parse_log_line(line);
    const LogLine before = std::exchange(before_, parsed);
    if (parsed.priority != '?' || before.priority == '?' || tells_of_an_end(line)) return parsed;
    return {before.priority, before.tag, parsed.text};
}

std::vector<std::string> LineSplitter::add(std::string_view piece) {
    std::vector<std::string> lines;
    for (const char c : piece) {
        if (c != '\n') rest_ += c;
        if (c == '\n' || rest_.size() == kLongestLine) lines.push_back(std::exchange(rest_, {}));
    }
    return lines;
}

std::string printable(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) c = ' ';
        if (byte > 0x7e) c = '?';
    }
    return result;
}

}  // namespace sim
