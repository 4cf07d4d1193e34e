// SPDX-License-Identifier: Apache-2.0
#include "sim/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace sim {
namespace {

// For the line with the verdict, and the shell's prompt after it.
constexpr size_t kRowsBelow = 2;

constexpr const char* kHideCursor = "\033[?25l";
constexpr const char* kShowCursor = "\033[?25h";
constexpr const char* kClearScreen = "\033[H\033[2J";
constexpr const char* kClearLine = "\033[2K";
constexpr const char* kClearBelow = "\033[J";

std::string styled(const ScreenLine& line, bool colour) {
    if (!colour || line.look == ScreenLine::Look::kPlain) return line.text;
    const char* start = line.look == ScreenLine::Look::kHeading ? "\033[1m" : "\033[31m";
    return start + line.text + "\033[0m";
}

}  // namespace

bool can_draw(int descriptor) {
    const char* terminal = std::getenv("TERM");
    return isatty(descriptor) && terminal && std::string_view(terminal) != "dumb";
}

Terminal::Terminal(int descriptor) : descriptor_(descriptor) {
    const char* no_colour = std::getenv("NO_COLOR");
    colour_ = !no_colour || !*no_colour;
}

Terminal::~Terminal() {
    if (cursor_hidden_) write(kShowCursor);
}

ScreenSize Terminal::size() const {
    ScreenSize size;
    winsize window{};
    if (ioctl(descriptor_, TIOCGWINSZ, &window) == 0 && window.ws_col != 0 && window.ws_row != 0) {
        size = {window.ws_col, window.ws_row};
    }
    size.rows -= std::min(size.rows, kRowsBelow);
    return size;
}

void Terminal::draw(const std::vector<ScreenLine>& lines) {
    std::string text;
    if (!cursor_hidden_) text += kHideCursor;
    cursor_hidden_ = true;
    if (size_changed_) {
        text += kClearScreen;
    } else if (drawn_rows_) {
        text += "\r\033[" + std::to_string(drawn_rows_) + "A";
    }
    size_changed_ = false;
    for (const ScreenLine& line : lines) text += kClearLine + styled(line, colour_) + "\r\n";
    text += kClearBelow;
    drawn_rows_ = lines.size();
    write(text);
}

void Terminal::write(std::string_view text) {
    while (!text.empty()) {
        // cppcheck-suppress invalidLifetime ; the caller's text outlives the call
        const ssize_t written = ::write(descriptor_, text.data(), text.size());
        if (written <= 0) return;  // the terminal is gone: there is nobody to show anything
        text.remove_prefix(static_cast<size_t>(written));
    }
}

}  // namespace sim
