// SPDX-License-Identifier: Apache-2.0
// One life of the daemon in this process, on the simulated device: from its main function to the
// moment when nothing happens any more. The process is good for one life only.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sweep/device.h"
#include "sweep/fault.h"
#include "sweep/scheduler.h"
#include "sweep/state.h"

namespace sweep {

struct LifeSetup {
    const DeviceSetup* device = nullptr;
    Trace before = {};     // what was done to the device in earlier lives
    bool reboots = false;  // the device, before the daemon starts
    std::optional<Plan> plan = {};
    bool eager = false;             // threads run as early as they can, not as late
    bool first = true;              // the scenario's own events come in this life
    std::vector<State> goals = {};  // how things may be at the end; none: any way
    bool shows_log = false;
    uint32_t restarts = 0;  // of the co-processor, one after the other, before the end
};

// What the process holds; the simulated device is in it.
struct Usage {
    uint64_t restarts;  // so far
    uint64_t allocated_bytes;
    uint64_t resident_bytes;
    uint64_t threads;
    uint64_t descriptors;  // of the simulated device
};

inline constexpr const char* kUpdateProperty = "persist.vendor.zt_aon.dfu_update";

// How lies begin that may be excused.
inline const std::string kUntrueUpdate = "the update counts as done: ";
inline const std::string kNoFile = "a partition file is not there: ";
inline const std::string kStrayFile = "a partition file that nobody asked for: ";

struct Life {
    // "quiet", or what ended it early: "exit STATUS", "killed", "aborted", "spins", "stuck",
    // "restless"
    std::string end;
    // When it was quiet, and then after a restart of the co-processor. One that the fault has not
    // struck yet when all is quiet does not count: the co-processor restarts for it.
    std::vector<State> states;
    std::vector<std::string> failures;       // checks of the model up to the first state
    std::vector<std::string> late_failures;  // and from then on
    std::vector<std::string> lies;           // what the daemon claimed and is not so
    // Log lines that tell of a failure, without their numbers, and how often each came.
    std::map<std::string, uint32_t> complaints;
    std::map<std::string, uint32_t> occasions;
    std::optional<std::string> struck_at;  // which path or property the fault struck
    bool may_abort = false;   // the daemon has read the beginning of a message that ends it
    bool must_abort = false;  // ... and the rest
    uint64_t log_lines = 0;
    uint64_t polls = 0;
    uint64_t progress = 0;
    int64_t seconds = 0;       // of the device's clock
    std::vector<Usage> usage;  // after a tenth of the restarts, and after all
    Trace trace;               // of all lives so far; empty when a goal was reached
};

class Simulation {
  public:
    explicit Simulation(const LifeSetup& setup);

    // Lives the life and hands it to `finish`, which does not return: on whichever thread is at
    // work then, while all others stand still.
    [[noreturn]] void live(std::function<void(const Life&)> finish);

    // For the system calls.
    Device& device() { return device_; }
    Scheduler& scheduler() { return scheduler_; }
    // Does what befalls the device and the daemon as a whole; what is left is for the call.
    std::optional<Fault> occasion(Occasion kind, const std::string& detail);
    void count_call();  // each call once
    void count_poll() { ++life_.polls; }
    void note_log(int priority, const char* text);
    [[noreturn]] void end(const std::string& how);

  private:
    void clock_moves(int64_t now);
    void quiet();
    void next_event_of_the_scenario();
    bool restarts_once_more();
    void restart();
    Usage usage() const;
    State state();
    void check_claims();
    void take_failures();

    const LifeSetup& setup_;
    Device device_;
    Scheduler scheduler_;
    Occasions occasions_;
    Life life_;
    std::function<void(const Life&)> finish_;
    std::deque<sim::Stimulus> events_to_come_;
    uint64_t last_progress_ = 0;
    int64_t quiet_since_ = 0;
    int64_t part_since_ = 0;
    int64_t born_at_ = 0;
    uint64_t progress_before_ = 0;
    bool has_waited_ = false;  // with a restart for the fault's occasion
    uint64_t calls_without_progress_ = 0;
    size_t failures_taken_ = 0;
    uint32_t restarts_ = 0;
};

// The one of this process; to be there before the product runs.
Simulation& simulation();
void set_simulation(Simulation* simulation);

}  // namespace sweep
