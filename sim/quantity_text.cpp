// SPDX-License-Identifier: Apache-2.0
#include "sim/quantity_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace sim {

std::string bytes_text(double bytes) {
    static constexpr std::array<const char*, 5> kUnits = {"B", "kB", "MB", "GB", "TB"};
    size_t unit = 0;
    while (bytes >= 999.95 && unit + 1 < kUnits.size()) {
        bytes /= 1000;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
    return text;
}

std::string duration_text(Time time) {
    const double seconds = std::chrono::duration<double>(time).count();
    const auto whole = std::lround(std::min(seconds, 359999.0));  // 99 hours and more
    char text[32];
    if (seconds < 9.95) {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    } else if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%ldh%02ldm", whole / 3600, whole / 60 % 60);
    } else {
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    }
    return text;
}

}  // namespace sim
