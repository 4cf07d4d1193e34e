// SPDX-License-Identifier: Apache-2.0
// What the screen shows, as text: nothing here knows of a terminal.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "sim/coprocessor.h"
#include "sim/daemon_log.h"
#include "sim/progress.h"
#include "sim/progress_times.h"

namespace sim {

struct ScreenContent {
    std::string scenario;
    Time now{0};
    Status status;
    ProgressTimes times;
    std::optional<Progress> progress;  // of what moves at present
    size_t failed_checks = 0;
    std::deque<LogLine> log;  // oldest first; as many as the highest terminal shows
};

struct ScreenSize {
    size_t columns = 80;
    size_t rows = 24;
};

struct ScreenLine {
    enum class Look { kPlain, kHeading, kError };
    std::string text;
    Look look = Look::kPlain;
};

// At most `size.rows` lines of at most `size.columns` printable ASCII characters each.
std::vector<ScreenLine> render(const ScreenContent& content, ScreenSize size);

}  // namespace sim
