// SPDX-License-Identifier: Apache-2.0
// The daemon's standard error, line by line.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

// One line as liblog writes it to standard error: "tag P MM-DD hh:mm:ss  pid  tid text". A line
// that does not look like that (a sanitizer's report, say) is all text, with priority '?'.
struct LogLine {
    char priority = '?';  // V, D, I, W, E, F
    std::string tag;
    std::string text;
};

LogLine parse_log_line(std::string_view line);

// The same for the lines of one daemon in order. A message may hold a line feed: the line behind it
// is then the rest of it, with its tag and priority.
class LogParser {
  public:
    LogLine parse(std::string_view line);

  private:
    LogLine before_;
};

// Cuts what arrives in pieces into lines.
class LineSplitter {
  public:
    std::vector<std::string> add(std::string_view piece);
    std::string rest() { return std::exchange(rest_, {}); }  // what the last newline left over

  private:
    std::string rest_;
};

// Control characters replaced by blanks and all that is not ASCII by question marks: as wide as it
// is long, and one line wherever it is shown.
std::string printable(std::string_view text);

}  // namespace sim
