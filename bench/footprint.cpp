// SPDX-License-Identifier: Apache-2.0
// What the daemon takes of the machine while it has nothing to do.
#include <cstdio>
#include <filesystem>
#include <string>

#include "bench/child_process.h"
#include "bench/groups.h"
#include "bench/resting_daemon.h"
#include "bench/temporary_directory.h"
#include "sim/fuse_mount.h"

namespace bench {
namespace {

constexpr double kKiB = 1024;

Figure stripped_size() {
    const TemporaryDirectory directory;
    const std::string stripped = directory.path() / "marlo_daemon";
    ChildProcess({"strip", "-o", stripped, MARLO_DAEMON}, {}).finish();
    const auto bytes = static_cast<double>(std::filesystem::file_size(stripped));
    return {"footprint", "the daemon's file, stripped", "KiB", bytes / kKiB, {}, at_most(200)};
}

void add_running_daemon(Figures& figures, const Effort& effort) {
    const double seconds = median_of(effort, seconds_to_first_command);
    const Rest rest = watch_resting_daemon(std::chrono::seconds(effort.is_quick ? 2 : 20));
    figures.push_back({"footprint",
                       "resident memory, idle",
                       "MiB",
                       rest.resident_bytes / (kKiB * kKiB),
                       {},
                       at_most(3.5)});
    figures.push_back(
        {"footprint", "wake-ups, idle", "/s", rest.wake_ups_per_second, {}, at_most(1.1)});
    figures.push_back(
        {"footprint", "from exec to the first ioctl", "ms", seconds * 1000, {}, at_most(5)});
}

}  // namespace

Figures footprint(const Effort& effort) {
    Figures figures = {stripped_size()};
    try {
        add_running_daemon(figures, effort);
    } catch (const sim::MountError& error) {
        std::fprintf(stderr, "footprint: no figures of the running daemon: %s\n", error.what());
    }
    return figures;
}

}  // namespace bench
