// SPDX-License-Identifier: Apache-2.0
// How a run of the daemon with one fault is judged.
#pragma once

#include <string>
#include <vector>

#include "sweep/simulation.h"

namespace sweep {

// What a scenario comes to when nothing goes wrong: in its first life, in another life of the
// daemon after it, and in one after the device was rebooted.
struct Course {
    Life first;
    std::vector<State> again;
    std::vector<State> rebooted;
};
// Throws std::runtime_error where something goes wrong all the same.
Course fault_free_course(const DeviceSetup& device, bool eager);

enum class Outcome {
    kIdle,       // the fault found no occasion
    kRight,      // all came to be as without the fault
    kRestarted,  // ... after a restart of the co-processor
    kRestored,   // ... after another start of the daemon
    kRebooted,   // ... after a reboot of the device
    kMiss,
};

// Each fault is made for an occasion that the run without one has had.
constexpr bool is_miss(Outcome outcome) {
    return outcome == Outcome::kMiss || outcome == Outcome::kIdle;
}

struct Judgement {
    Outcome outcome;
    std::string why;  // of a miss
};

// A fault may end the daemon by the one rule that ends it. Otherwise it lives, claims nothing that
// is not so, neither spins nor floods the log; what it did not bring about it has reported as an
// error; and the restart of the co-processor, else a start of the daemon, else a reboot, brings it
// about. `shows_log`: of all lives, on standard error.
Judgement judge(const DeviceSetup& device, const Course& course, const Plan& plan, bool eager,
                bool shows_log = false);

}  // namespace sweep
