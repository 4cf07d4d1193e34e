// SPDX-License-Identifier: Apache-2.0
#include "sim/plain_output.h"

#include <cstdio>
#include <utility>

#include "sim/daemon_log.h"
#include "sim/event.h"
#include "sim/event_text.h"
#include "sim/quantity_text.h"

namespace sim {
namespace {

constexpr size_t kLogLines = 30;  // shown when a session fails: what led to it, on one screen

// Together with the time between two calls of refresh this stays below a quarter of a second.
constexpr Time kSilence = std::chrono::milliseconds(150);

std::string describe(const Progress& progress) {
    std::string text = progress.what + " " + std::to_string(progress.done * 100 / progress.total) +
                       "%, " + bytes_text(static_cast<double>(progress.done)) + " of " +
                       bytes_text(static_cast<double>(progress.total));
    if (progress.rate) text += ", " + bytes_text(*progress.rate) + "/s";
    if (progress.remaining) text += ", " + duration_text(*progress.remaining) + " left";
    return text;
}

std::string time_stamp(Time time) {
    char text[32];
    std::snprintf(text, sizeof text, "%8.3f  ", std::chrono::duration<double>(time).count());
    return text;
}

}  // namespace

void PlainOutput::event(const Event& event) {
    meter_.event(event);
    if (event.fields.contains("line")) {
        log_.push_back(printable(event.fields["line"].get_ref<const std::string&>()));
        if (log_.size() > kLogLines) log_.pop_front();
        return;
    }
    const auto text = describe(event);
    if (!text) return;
    // Of a state only a part is told here, which may be the same as before.
    if (event.kind == EventKind::kState && std::exchange(state_, *text) == *text) return;
    print(event.time, *text);
}

void PlainOutput::refresh(const Status& status, Time now) {
    const auto progress = meter_.look(status, now);
    if (!progress || now < progress_told_at_ + kSilence) return;
    // What stands still needs no further line.
    const auto amount = std::pair(progress->what, progress->done);
    if (std::exchange(progress_told_, amount) == amount) return;
    progress_told_at_ = now;
    print(now, "progress: " + describe(*progress));
}

// Flushed line by line: somebody may be reading the other end of a pipe.
void PlainOutput::print(Time time, const std::string& text) {
    out_ << time_stamp(time) << printable(text) << std::endl;
}

void PlainOutput::finish(const Status&, Time, const Ending& ending) {
    if (!ending.failed) return;
    out_ << "the last lines of the daemon's log:\n";
    for (const std::string& line : log_) out_ << "    " << line << "\n";
    for (const std::string& failure : ending.failures) {
        out_ << "failed check: " << printable(failure) << "\n";
    }
    out_ << std::flush;
}

}  // namespace sim
