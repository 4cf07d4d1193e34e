// SPDX-License-Identifier: Apache-2.0
#include "sim/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr Time kBetweenDrawings = 50ms;  // more often than 20 times a second nobody sees
constexpr size_t kLogLines = 200;        // more rows than a terminal has

// For the line with the verdict, and the shell's prompt after it.
constexpr size_t kRowsBelow = 2;

constexpr const char* kHideCursor = "\033[?25l";
constexpr const char* kShowCursor = "\033[?25h";
constexpr const char* kClearScreen = "\033[H\033[2J";
constexpr const char* kClearLine = "\033[2K";
constexpr const char* kClearBelow = "\033[J";

ScreenSize size_of(int terminal) {
    winsize size{};
    if (ioctl(terminal, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {};
    return {size.ws_col, size.ws_row};
}

std::string styled(const ScreenLine& line, bool colour) {
    if (!colour || line.look == ScreenLine::Look::kPlain) return line.text;
    const char* start = line.look == ScreenLine::Look::kHeading ? "\033[1m" : "\033[31m";
    return start + line.text + "\033[0m";
}

}  // namespace

Screen::Screen(int terminal, std::string scenario) : terminal_(terminal) {
    const char* no_colour = std::getenv("NO_COLOR");
    colour_ = !no_colour || !*no_colour;
    content_.scenario = std::move(scenario);
}

Screen::~Screen() {
    if (cursor_hidden_) write(kShowCursor);
}

void Screen::event(const Event& event) {
    content_.times.event(event);
    if (event.kind == EventKind::kCheck) ++content_.failed_checks;
    if (!event.fields.contains("line")) return;
    LogLine line = parse_log_line(event.fields["line"].get_ref<const std::string&>());
    // Formats that end in a newline leave an empty line behind.
    if (line.text.find_first_not_of(" \t") == std::string::npos) return;
    content_.log.push_back(std::move(line));
    if (content_.log.size() > kLogLines) content_.log.pop_front();
}

void Screen::refresh(const Status& status, Time now) {
    if (drawn_at_ && now - *drawn_at_ < kBetweenDrawings && !size_changed_) return;
    drawn_at_ = now;
    content_.now = now;
    content_.status = status;
    draw();
}

void Screen::finish(const Status& status, Time now, const Ending& ending) {
    drawn_at_.reset();
    refresh(status, now);
    std::string text;
    for (const std::string& failure : ending.failures) {
        text += "failed check: " + printable(failure) + "\n";
    }
    write(text);
}

void Screen::draw() {
    ScreenSize size = size_of(terminal_);
    size.rows -= std::min(size.rows, kRowsBelow);
    std::string text;
    if (!cursor_hidden_) text += kHideCursor;
    cursor_hidden_ = true;
    if (size_changed_) {
        text += kClearScreen;
    } else if (drawn_rows_) {
        text += "\r\033[" + std::to_string(drawn_rows_) + "A";
    }
    size_changed_ = false;
    const std::vector<ScreenLine> lines = render(content_, size);
    for (const ScreenLine& line : lines) text += kClearLine + styled(line, colour_) + "\r\n";
    text += kClearBelow;
    drawn_rows_ = lines.size();
    write(text);
}

void Screen::write(std::string_view text) {
    while (!text.empty()) {
        // cppcheck-suppress invalidLifetime ; the caller's text outlives the call
        const ssize_t written = ::write(terminal_, text.data(), text.size());
        if (written <= 0) return;  // the terminal is gone: there is nobody to show anything
        text.remove_prefix(static_cast<size_t>(written));
    }
}

}  // namespace sim
