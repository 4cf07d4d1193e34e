// SPDX-License-Identifier: Apache-2.0
#include "sim/screen.h"

#include "sim/event.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr Time kBetweenDrawings = 50ms;  // more often than 20 times a second nobody sees
constexpr size_t kLogLines = 200;        // more rows than a terminal has

}  // namespace

Screen::Screen(int terminal, std::string scenario) : terminal_(terminal) {
    content_.scenario = std::move(scenario);
}

void Screen::event(const Event& event) {
    content_.times.event(event);
    meter_.event(event);
    if (event.kind == EventKind::kCheck) ++content_.failed_checks;
    if (!event.fields.contains("line")) return;
    LogLine line = parser_.parse(event.fields["line"].get_ref<const std::string&>());
    // Formats that end in a newline leave an empty line behind.
    if (line.text.find_first_not_of(" \t") == std::string::npos) return;
    content_.log.push_back(std::move(line));
    if (content_.log.size() > kLogLines) content_.log.pop_front();
}

void Screen::refresh(const Status& status, Time now) {
    if (drawn_at_ && now - *drawn_at_ < kBetweenDrawings && !terminal_.size_changed()) return;
    drawn_at_ = now;
    content_.now = now;
    content_.status = status;
    content_.progress = meter_.look(status, now);
    terminal_.draw(render(content_, terminal_.size()));
}

void Screen::finish(const Status& status, Time now, const Ending& ending) {
    drawn_at_.reset();
    refresh(status, now);
    std::string text;
    for (const std::string& failure : ending.failures) {
        text += "failed check: " + printable(failure) + "\n";
    }
    terminal_.write(text);
}

}  // namespace sim
