// SPDX-License-Identifier: Apache-2.0
#include "sim/screen_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace sim {
namespace {

using Look = ScreenLine::Look;

constexpr size_t kLogRows = 6;         // what the log gets even when there are many images
constexpr size_t kNameColumns = 17;    // of an image
constexpr size_t kFigureColumns = 45;  // of what stands behind a bar

struct Bar {
    std::string name;
    uint64_t done;
    uint64_t total;
    std::optional<ProgressTimes::Span> span;
};

double seconds(Time time) {
    return std::chrono::duration<double>(time).count();
}

// "1.2 MB"; three digits at most before the point.
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

std::string minutes_text(double duration) {
    const auto whole = std::lround(std::min(duration, 359999.0));  // 99 hours and more
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%ldh%02ldm", whole / 3600, whole / 60 % 60);
    } else {
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    }
    return text;
}

std::string padded(std::string text, size_t columns) {
    text.resize(columns, ' ');
    return text;
}

// Percentage, bytes, rate and the time that remains, in kFigureColumns.
std::string figures(const Bar& bar, Time now) {
    const uint64_t percent = bar.total ? bar.done * 100 / bar.total : 100;
    std::string rate, remaining;
    if (bar.span && bar.done > 0) {
        const double elapsed = seconds(bar.span->end.value_or(now) - bar.span->begin);
        const double speed = static_cast<double>(bar.done) / std::max(elapsed, 1e-6);
        rate = bytes_text(speed) + "/s";
        remaining = minutes_text(static_cast<double>(bar.total - bar.done) / speed) + " left";
    }
    if (bar.done == bar.total && bar.span && bar.span->end) remaining = "done";
    char text[160];
    std::snprintf(text, sizeof text, " %3u%% %8s/%-8s %10s %10s", static_cast<unsigned>(percent),
                  bytes_text(static_cast<double>(bar.done)).c_str(),
                  bytes_text(static_cast<double>(bar.total)).c_str(), rate.c_str(),
                  remaining.c_str());
    return text;
}

std::string bar_text(const Bar& bar, Time now, size_t columns) {
    const size_t fixed = kNameColumns + kFigureColumns + 3;
    const size_t width = columns > fixed + 4 ? columns - fixed : 4;
    const double part = bar.total  ? static_cast<double>(bar.done) / static_cast<double>(bar.total)
                        : bar.span ? 1
                                   : 0;
    const auto filled = static_cast<size_t>(part * static_cast<double>(width));
    return padded(bar.name, kNameColumns) + " [" + std::string(filled, '#') +
           std::string(width - filled, '-') + "]" + figures(bar, now);
}

std::vector<Bar> bars_of(const ScreenContent& content) {
    const Status& status = content.status;
    std::vector<Bar> bars;
    for (const auto& [type, resource] : status.misc_data) {
        bars.push_back({"misc " + resource.name, resource.done, resource.size, {}});
    }
    if (status.memory_total) {
        bars.push_back({"remote memory", status.memory_done, status.memory_total, {}});
    }
    // The variant without flash has no use for a download.
    if (!bars.empty() && status.phase == Phase::kIdle) return bars;
    bars.push_back({"erase", status.erase_done, status.erase_total, content.times.erase()});
    for (const ImageProgress& image : status.images) {
        const std::string name = std::to_string(image.id) + " " + printable(image.name);
        bars.push_back({name, image.done, image.size, content.times.image(image.id)});
    }
    return bars;
}

// The part of the list that fits, with the bar that moves in it.
std::vector<Bar> visible(std::vector<Bar> bars, size_t rows) {
    if (bars.size() <= rows) return bars;
    const auto moves = [](const Bar& bar) { return !bar.span || !bar.span->end; };
    const auto current = std::find_if(bars.begin(), bars.end(), moves) - bars.begin();
    const auto last_start = static_cast<std::ptrdiff_t>(bars.size() - rows);
    const auto start = std::clamp<std::ptrdiff_t>(current - 1, 0, last_start);
    return {bars.begin() + start, bars.begin() + start + static_cast<std::ptrdiff_t>(rows)};
}

ScreenLine title(const ScreenContent& content, size_t columns) {
    const std::string left = "marlo-sim " + content.scenario;
    char right[32];
    std::snprintf(right, sizeof right, " %.1f s", seconds(content.now));
    const size_t room = columns - std::min(columns, std::string_view(right).size());
    return {padded(left, room) + right, Look::kHeading};
}

ScreenLine state_line(const ScreenContent& content) {
    const Status& status = content.status;
    const std::string gap = "   ";
    std::string text = "boot mode " + boot_mode_name(status.boot_mode) + gap;
    text += (status.running ? "running" : "offline") + gap;
    text += std::string("SPI ") + (status.spi_busy ? "busy" : "free") + gap;
    text += "boot status " +
            (status.boot_status ? std::to_string(*status.boot_status) : std::string("-")) + gap;
    text += std::string("wakelock ") + (status.wakelock_held ? "held" : "free");
    return {text};
}

ScreenLine log_line(const LogLine& line) {
    const bool error = line.priority == 'E' || line.priority == 'F';
    return {std::string(1, line.priority) + " " + printable(line.text),
            error ? Look::kError : Look::kPlain};
}

}  // namespace

std::vector<ScreenLine> render(const ScreenContent& content, ScreenSize size) {
    std::vector<ScreenLine> lines = {title(content, size.columns), state_line(content)};
    if (content.failed_checks) {
        lines.push_back({std::to_string(content.failed_checks) + " failed checks", Look::kError});
    }
    const size_t taken = lines.size() + 1 + kLogRows;
    const size_t bar_rows = size.rows > taken + 1 ? size.rows - taken : 1;
    for (const Bar& bar : visible(bars_of(content), bar_rows)) {
        lines.push_back({bar_text(bar, content.now, size.columns)});
    }
    lines.push_back({"the daemon's log", Look::kHeading});
    const size_t log_rows = size.rows > lines.size() ? size.rows - lines.size() : 0;
    const size_t shown = std::min(content.log.size(), log_rows);
    for (auto line = content.log.end() - static_cast<std::ptrdiff_t>(shown);
         line != content.log.end(); ++line) {
        lines.push_back(log_line(*line));
    }
    lines.resize(std::min(lines.size(), size.rows));
    for (ScreenLine& line : lines) {
        line.text.resize(std::min(line.text.size(), size.columns));
        line.text.resize(line.text.find_last_not_of(' ') + 1);
    }
    return lines;
}

}  // namespace sim
