// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/daemon_log.h"

#include <android/log.h>

#include <mutex>
#include <string_view>
#include <utility>

namespace marlo_fw {
namespace {

std::mutex g_lock;
std::vector<LogLine> g_lines;

// A line begins with the function's name and the number of its source line: "readFile:17, ".
LogLine split(bool is_error, std::string_view text) {
    const size_t colon = text.find(':');
    const size_t comma = text.find(", ");
    if (colon == text.npos || comma == text.npos || comma < colon ||
        text.substr(colon + 1, comma - colon - 1).find_first_not_of("0123456789") != text.npos) {
        return {is_error, "", std::string(text)};
    }
    return {is_error, std::string(text.substr(0, colon)), std::string(text.substr(comma + 2))};
}

void keep(const __android_logger_data* data, const char* text) {
    LogLine line = split(data->priority >= ANDROID_LOG_ERROR, text);
    const std::lock_guard lock(g_lock);
    g_lines.push_back(std::move(line));
}

}  // namespace

std::vector<LogLine> take_daemon_log() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(keep);
    const std::lock_guard lock(g_lock);
    return std::exchange(g_lines, {});
}

bool is_complaint(const LogLine& line) {
    return line.is_error && line.text != "ELFCLASS32" && line.text != "ELFCLASS64";
}

}  // namespace marlo_fw
