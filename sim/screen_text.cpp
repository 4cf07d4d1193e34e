// SPDX-License-Identifier: Apache-2.0
#include "sim/screen_text.h"

#include <algorithm>
#include <cstdio>

#include "sim/quantity_text.h"

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
    std::optional<double> rate = std::nullopt;  // bytes per second
    std::optional<Time> remaining = std::nullopt;
};

double seconds(Time time) {
    return std::chrono::duration<double>(time).count();
}

std::string padded(std::string text, size_t columns) {
    text.resize(columns, ' ');
    return text;
}

// Percentage, bytes, rate and the time that remains, in kFigureColumns.
std::string figures(const Bar& bar, Time now) {
    const uint64_t percent = bar.total ? bar.done * 100 / bar.total : 100;
    std::string rate = bar.rate ? bytes_text(*bar.rate) + "/s" : "";
    std::string remaining = bar.remaining ? duration_text(*bar.remaining) + " left" : "";
    if (!bar.rate && bar.span && bar.done > 0) {
        const double elapsed = seconds(bar.span->end.value_or(now) - bar.span->begin);
        rate = bytes_text(static_cast<double>(bar.done) / std::max(elapsed, 1e-6)) + "/s";
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

// With the rate and the remaining time, if this is what moves at present.
Bar moving_bar(const ScreenContent& content, Bar bar, const std::string& what) {
    if (!content.progress || content.progress->what != what) return bar;
    bar.rate = content.progress->rate;
    bar.remaining = content.progress->remaining;
    return bar;
}

// All images together: the one line that tells how long the download will take.
Bar whole_download(const ScreenContent& content) {
    Bar bar = {"all images", 0, 0, {}};
    for (const ImageProgress& image : content.status.images) {
        bar.done += image.done + image.being_written;
        bar.total += image.size;
    }
    bar.span = content.times.images();
    return moving_bar(content, bar, "images");
}

// The variant without flash has no use for a download.
bool downloads(const Status& status) {
    return status.phase != Phase::kIdle || (status.misc_data.empty() && !status.memory_total);
}

std::vector<Bar> bars_of(const ScreenContent& content) {
    const Status& status = content.status;
    std::vector<Bar> bars;
    for (const auto& [type, resource] : status.misc_data) {
        const std::string what = "misc data " + resource.name;
        bars.push_back(
            moving_bar(content, {"misc " + resource.name, resource.done, resource.size, {}}, what));
    }
    if (status.memory_total) {
        bars.push_back(moving_bar(content,
                                  {"remote memory", status.memory_done, status.memory_total, {}},
                                  "remote memory"));
    }
    if (!downloads(status)) return bars;
    bars.push_back(moving_bar(
        content, {"erase", status.erase_done, status.erase_total, content.times.erase()}, "erase"));
    for (const ImageProgress& image : status.images) {
        const std::string name = std::to_string(image.id) + " " + printable(image.name);
        bars.push_back(
            {name, image.done + image.being_written, image.size, content.times.image(image.id)});
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
    if (downloads(content.status)) {
        lines.push_back({bar_text(whole_download(content), content.now, size.columns)});
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
