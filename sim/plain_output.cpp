// SPDX-License-Identifier: Apache-2.0
#include "sim/plain_output.h"

#include <cstdio>

#include "sim/daemon_log.h"
#include "sim/event_text.h"

namespace sim {
namespace {

constexpr size_t kLogLines = 30;  // shown when a session fails: what led to it, on one screen

std::string time_stamp(Time time) {
    char text[32];
    std::snprintf(text, sizeof text, "%8.3f  ", std::chrono::duration<double>(time).count());
    return text;
}

}  // namespace

void PlainOutput::event(const Event& event) {
    if (event.fields.contains("line")) {
        log_.push_back(printable(event.fields["line"].get_ref<const std::string&>()));
        if (log_.size() > kLogLines) log_.pop_front();
        return;
    }
    if (event.kind == EventKind::kState) {
        new_state_ = event;
    } else if (const auto text = describe(event)) {
        print(event.time, *text);
    }
}

void PlainOutput::refresh(const Status&, Time) {
    if (!new_state_) return;
    const std::string text = describe(*new_state_).value_or("");
    if (text != state_) print(new_state_->time, text);
    state_ = text;
    new_state_.reset();
}

// Flushed line by line: somebody may be reading the other end of a pipe.
void PlainOutput::print(Time time, const std::string& text) {
    out_ << time_stamp(time) << printable(text) << std::endl;
}

void PlainOutput::finish(const Status& status, Time now, const Ending& ending) {
    refresh(status, now);
    if (!ending.failed) return;
    out_ << "the last lines of the daemon's log:\n";
    for (const std::string& line : log_) out_ << "    " << line << "\n";
    for (const std::string& failure : ending.failures) {
        out_ << "failed check: " << printable(failure) << "\n";
    }
    out_ << std::flush;
}

}  // namespace sim
