// SPDX-License-Identifier: Apache-2.0
#include "sim/process_usage.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

namespace sim {
namespace {

// Of /proc/PID/stat, counted from the state, which follows the name in its parentheses.
constexpr size_t kUserTime = 11;
constexpr size_t kSystemTime = 12;
constexpr size_t kThreads = 17;
constexpr size_t kResidentPages = 21;

std::vector<std::string> stat_fields(const fs::path& process) {
    std::ifstream file(process / "stat");
    std::string line;
    std::getline(file, line);
    const size_t name_end = line.rfind(')');
    if (name_end == std::string::npos) return {};
    std::istringstream rest(line.substr(name_end + 1));
    return {std::istream_iterator<std::string>(rest), {}};
}

}  // namespace

std::optional<ProcessUsage> usage_of(pid_t process) {
    const fs::path directory = "/proc/" + std::to_string(process);
    const std::vector<std::string> fields = stat_fields(directory);
    if (fields.size() <= kResidentPages) return {};
    ProcessUsage usage;
    const uint64_t ticks = std::stoull(fields[kUserTime]) + std::stoull(fields[kSystemTime]);
    usage.cpu =
        std::chrono::milliseconds(ticks * 1000 / static_cast<uint64_t>(sysconf(_SC_CLK_TCK)));
    usage.threads = std::stoi(fields[kThreads]);
    usage.memory =
        std::stoull(fields[kResidentPages]) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    std::error_code gone;
    for (fs::directory_iterator entry(directory / "fd", gone), end; !gone && entry != end;
         entry.increment(gone)) {
        ++usage.descriptors;
    }
    return usage;
}

uint64_t peak_memory_of(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(file, line);) {
        constexpr std::string_view kName = "VmHWM:";
        if (line.starts_with(kName)) return std::stoull(line.substr(kName.size())) * 1024;
    }
    return 0;
}

std::string usage_text(const ProcessUsage& usage) {
    constexpr double kMiB = 1 << 20;
    char text[100];
    std::snprintf(text, sizeof text, "%d threads, %d descriptors, %.2f MiB", usage.threads,
                  usage.descriptors, static_cast<double>(usage.memory) / kMiB);
    return text;
}

}  // namespace sim
