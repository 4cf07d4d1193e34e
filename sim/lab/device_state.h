// SPDX-License-Identifier: Apache-2.0
// One of many virtual devices that run at once, seen from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/observer.h"

namespace sim {

// What a device took of the machine. 0: not known.
struct DeviceCost {
    Time daemon_cpu{0};
    Time coprocessor_cpu{0};
    uint64_t daemon_memory = 0;  // bytes that were resident at most
    uint64_t coprocessor_memory = 0;
};

struct DeviceEnd {
    enum class Outcome { kPassed, kFailed, kCannotRun };
    Outcome outcome;
    std::string why;  // it did not pass
    DeviceCost cost = {};
};

struct DeviceState {
    unsigned number;  // from 1 on
    bool started = false;
    bool daemon_runs = false;  // or has run
    uint64_t bytes = 0;        // moved so far; never fewer than before
    double part = 0;           // of all that is to be moved, from 0 to 1; never less than before
    std::string moving = {};   // what is at present: "images"
    std::optional<Time> remaining = {};  // that this will take
    Time begun{0};                       // since the first device began
    std::optional<Time> ended = {};
    std::optional<DeviceEnd> end = {};    // told just before
    std::vector<std::string> log = {};    // how a failure came about, for people
    std::vector<std::string> notes = {};  // what else there is to tell, for standard error

    bool failed() const { return end && end->outcome == DeviceEnd::Outcome::kFailed; }
    bool passed() const { return end && end->outcome == DeviceEnd::Outcome::kPassed; }
};

}  // namespace sim
