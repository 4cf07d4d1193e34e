// SPDX-License-Identifier: Apache-2.0
// What the daemon would log: its lines come here and go nowhere else.
#pragma once

#include <string>
#include <vector>

namespace marlo_fw {

struct LogLine {
    bool is_error = false;
    std::string function;  // in whose name it was logged
    std::string text;
};

// From the first call on, every line that the process logs is kept until it is taken.
std::vector<LogLine> take_daemon_log();

// Whether the line tells of something that is not as it should be. Two lines have an error's
// priority and only name the class of an image.
bool is_complaint(const LogLine& line);

}  // namespace marlo_fw
