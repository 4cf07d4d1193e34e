// SPDX-License-Identifier: Apache-2.0
// Whether the daemon stays within its bounds: how much it logs and asks, and what it holds and
// uses while it rests.
#pragma once

#include <optional>
#include <string>

#include "sim/observer.h"
#include "sim/process_usage.h"

namespace sim {

// What a resting daemon may hold. The threads: main, the listener for restarts, a reader. The
// descriptors: three of every process, the listener's socket, two of the wakelock, the reader's
// channel and the two ends of its pipe.
struct DaemonBounds {
    int threads = 3;
    int descriptors = 9;
    uint64_t memory = 160 << 20;  // bytes: answers of 16 MiB pass through several hands
};
// As above, with what a sanitizer adds.
DaemonBounds usual_bounds();

// Empty, or what is out of bounds.
std::string out_of_bounds(const ProcessUsage& usage, const DaemonBounds& bounds);

class DaemonWatch {
  public:
    void logged() { ++now_.lines; }

    // To be called often. `process`: the daemon's. `requests`: to its device files so far. `tasks`:
    // what the co-processor has given it to do so far; each leads to a bounded number of requests
    // and lines. Empty, or what was out of bounds in the last second.
    [[nodiscard]] std::string look(Time now, pid_t process, uint64_t requests, uint64_t tasks);

    // Whether it has done nothing for longer than it ever waits silently.
    bool rests(Time now) const { return now >= active_at_ + kLongestSilence; }
    // The share of one processor, in per cent, that it has used since it fell silent.
    double silent_cpu(Time now, const ProcessUsage& usage) const;
    // As if it had just done something.
    void stir(Time now);

  private:
    static constexpr Time kLongestSilence = std::chrono::milliseconds(2600);

    struct Counts {
        uint64_t lines = 0;
        uint64_t requests = 0;
        uint64_t tasks = 0;
    };
    void look_for_silence(Time now, pid_t process);

    Counts now_;
    uint64_t seen_ = 0;  // lines and requests
    Time active_at_{0};
    std::optional<std::chrono::milliseconds> used_before_;  // CPU, until it fell silent
    Time silent_at_{0};
    Time second_{0};  // when it began
    Counts before_;   // that second
};

}  // namespace sim
