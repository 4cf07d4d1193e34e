// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/lab_text.h"

#include <algorithm>
#include <cstdio>

#include "sim/quantity_text.h"

namespace sim {
namespace {

constexpr size_t kAccountsShown = 2;   // of failures: the others tend to be alike
constexpr size_t kNumbersShown = 20;   // of devices or ranges of them
constexpr size_t kFigureColumns = 48;  // before and behind a bar
constexpr size_t kLongestBar = 60;     // more tells no more

template <typename... Values>
std::string formatted(const char* format, Values... values) {
    char text[200];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

double seconds(Time time) {
    return std::chrono::duration<double>(time).count();
}

std::string memory_text(uint64_t bytes) {
    return bytes ? bytes_text(static_cast<double>(bytes)) : "not seen";
}

template <typename Condition>
size_t count(const DeviceStates& devices, Condition condition) {
    return static_cast<size_t>(std::count_if(devices.begin(), devices.end(), condition));
}

size_t count_ended(const DeviceStates& devices) {
    return count(devices, [](const DeviceState& device) { return device.ended.has_value(); });
}

double part_of(const DeviceState& device) {
    return device.end ? 1 : device.part;
}

double part_of(const DeviceStates& devices) {
    double sum = 0;
    for (const DeviceState& device : devices) sum += part_of(device);
    return sum / static_cast<double>(devices.size());
}

// Only what has all been moved is 100 %.
int percent(double part) {
    return static_cast<int>(part * 100 + 1e-9);
}

std::string bar(double part, size_t columns) {
    const size_t room = columns > kFigureColumns ? columns - kFigureColumns : 0;
    const size_t width = std::clamp<size_t>(room, 4, kLongestBar);
    const auto filled = static_cast<size_t>(part * static_cast<double>(width));
    return "[" + std::string(filled, '#') + std::string(width - filled, '-') + "]" +
           formatted(" %3d%%", percent(part));
}

std::string cost_text(const DeviceCost& cost) {
    return formatted("CPU %.3f s (daemon) and %.3f s (co-processor), ", seconds(cost.daemon_cpu),
                     seconds(cost.coprocessor_cpu)) +
           "memory " + memory_text(cost.daemon_memory) + " and " +
           memory_text(cost.coprocessor_memory);
}

// The mean processor time, and the most memory, of those that can tell.
std::string cost_text(const DeviceStates& devices) {
    DeviceCost sum;
    Time::rep known = 0;
    for (const DeviceState& device : devices) {
        if (!device.end || device.end->cost.coprocessor_memory == 0) continue;
        const DeviceCost& cost = device.end->cost;
        ++known;
        sum.daemon_cpu += cost.daemon_cpu;
        sum.coprocessor_cpu += cost.coprocessor_cpu;
        sum.daemon_memory = std::max(sum.daemon_memory, cost.daemon_memory);
        sum.coprocessor_memory = std::max(sum.coprocessor_memory, cost.coprocessor_memory);
    }
    if (known == 0) return "";
    sum.daemon_cpu /= known;
    sum.coprocessor_cpu /= known;
    return "; each took on average " +
           formatted("%.3f s of CPU (daemon %.3f s, co-processor %.3f s)",
                     seconds(sum.daemon_cpu + sum.coprocessor_cpu), seconds(sum.daemon_cpu),
                     seconds(sum.coprocessor_cpu)) +
           ", and at most " + memory_text(sum.daemon_memory) + " + " +
           memory_text(sum.coprocessor_memory) + " of memory";
}

ScreenLine row(const DeviceState& device, size_t columns) {
    using Look = ScreenLine::Look;
    if (device.end) return {end_text(device), device.failed() ? Look::kError : Look::kPlain};
    const std::string name = formatted("device %-4u ", device.number);
    if (!device.started) return {name + "waits"};
    std::string text = name + bar(device.part, columns);
    if (!device.moving.empty()) text += " " + device.moving;
    if (device.remaining) text += ", " + duration_text(*device.remaining) + " left";
    return {text};
}

// What is to be seen first is the least.
int rank(const DeviceState& device) {
    if (device.failed()) return 0;
    if (!device.end) return device.started ? 1 : 2;
    return 3;
}

std::vector<const DeviceState*> in_order_of_rank(const DeviceStates& devices) {
    std::vector<const DeviceState*> ordered;
    for (const DeviceState& device : devices) ordered.push_back(&device);
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto* a, const auto* b) { return rank(*a) < rank(*b); });
    return ordered;
}

}  // namespace

std::string devices_text(size_t count) {
    return std::to_string(count) + (count == 1 ? " device" : " devices");
}

std::string end_text(const DeviceState& device) {
    const std::string after =
        formatted(" %.1f s", seconds(device.ended.value_or(device.begun) - device.begun));
    const std::string name = "device " + std::to_string(device.number);
    if (device.passed()) return name + " passed in" + after + "; " + cost_text(device.end->cost);
    return name + " failed after" + after + ": " + device.end->why;
}

uint64_t bytes_moved(const DeviceStates& devices) {
    uint64_t bytes = 0;
    for (const DeviceState& device : devices) bytes += device.bytes;
    return bytes;
}

std::string progress_text(const DeviceStates& devices) {
    return formatted("%d%% moved, ", percent(part_of(devices))) +
           bytes_text(static_cast<double>(bytes_moved(devices))) +
           formatted("; %zu of ", count_ended(devices)) + devices_text(devices.size()) + " ended";
}

std::string summary_text(const DeviceStates& devices, Time now) {
    const size_t passed = count(devices, [](const auto& device) { return device.passed(); });
    const size_t failed = count(devices, [](const auto& device) { return device.failed(); });
    const size_t left = devices.size() - passed - failed;
    return devices_text(devices.size()) + formatted(": %zu passed, %zu failed", passed, failed) +
           (left ? ", " + std::to_string(left) + " not done" : std::string()) +
           formatted("; %.1f s", seconds(now)) + cost_text(devices);
}

std::vector<std::string> failure_texts(const DeviceStates& devices) {
    std::vector<std::string> lines;
    size_t shown = 0, left_out = 0;
    for (const DeviceState& device : devices) {
        if (!device.failed() || device.log.empty()) continue;
        if (++shown > kAccountsShown) {
            ++left_out;
            continue;
        }
        lines.push_back("device " + std::to_string(device.number) + ": " + device.end->why);
        for (const std::string& line : device.log) lines.push_back("  " + line);
    }
    if (left_out) lines.push_back(std::to_string(left_out) + " more failed, not shown");
    return lines;
}

std::string failed_numbers(const DeviceStates& devices) {
    std::string text;
    size_t failed = 0, ranges = 0;
    for (size_t first = 0; first < devices.size(); ++first) {
        if (!devices[first].failed()) continue;
        size_t last = first;
        while (last + 1 < devices.size() && devices[last + 1].failed()) ++last;
        failed += last - first + 1;
        if (++ranges <= kNumbersShown) {
            text += (text.empty() ? "" : ", ") + std::to_string(devices[first].number);
            if (last > first) text += "-" + std::to_string(devices[last].number);
        }
        first = last;
    }
    if (ranges > kNumbersShown) text += ", ...";
    return std::to_string(failed) + " failed: " + text;
}

std::vector<ScreenLine> render(const std::string& title, const DeviceStates& devices, Time now,
                               ScreenSize size) {
    std::vector<ScreenLine> lines = {
        {title + formatted("   %.1f s", seconds(now)), ScreenLine::Look::kHeading},
        {"all         " + bar(part_of(devices), size.columns)},
        {progress_text(devices)}};
    const size_t rows = size.rows - std::min(size.rows, lines.size());
    // The last one is for how many there are besides.
    const size_t shown = devices.size() <= rows ? devices.size() : rows - std::min<size_t>(rows, 1);
    const auto ordered = in_order_of_rank(devices);
    for (size_t i = 0; i < shown; ++i) lines.push_back(row(*ordered[i], size.columns));
    if (shown < devices.size()) {
        lines.push_back({"and " + std::to_string(devices.size() - shown) + " more"});
    }
    lines.resize(std::min(lines.size(), size.rows));
    for (ScreenLine& line : lines) line.text.resize(std::min(line.text.size(), size.columns));
    return lines;
}

}  // namespace sim
