// SPDX-License-Identifier: Apache-2.0
// What can go wrong where. Each call of the product that leaves it, each packet and each uevent on
// the way to it is an occasion; each kind of occasion has faults that fit it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sweep/disturbance.h"

namespace sweep {

class PlanError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// fault.cpp has a row for each.
enum class Occasion {
    kIoctl,
    kOpenControl,
    kOpenChannel,
    kOpenFile,
    kReadChannel,
    kReadFile,
    kWriteChannel,
    kWriteFile,
    kWake,  // a write to the kernel's wakelock files
    kSync,
    kRename,
    kUnlink,
    kStat,
    kList,
    kPoll,
    kPipe,
    kThread,
    kProperty,
    kMemory,
    kDownloadPacket,  // to the daemon, as the two that follow
    kMiscPacket,
    kMemoryPacket,
    kUevent,
};
const char* occasion_name(Occasion kind);
Occasion occasion_named(const std::string& name);  // throws PlanError
std::vector<Occasion> all_occasions();

enum class Effect {
    kFails,      // with errno `value`, `times` times in a row
    kGives,      // the result `value`
    kShortens,   // at most `value` bytes
    kEvents,     // the poll reports `value` for the channel
    kDisturbs,   // the packet, with `disturbance` and `value`
    kLoses,      // the packet from the daemon does not arrive
    kHangsUp,    // the channels, for `value` milliseconds; -1 for good
    kRestarts,   // the co-processor is without power for `value` milliseconds
    kAnnounces,  // a uevent that nobody's device has sent comes in front
    kKills,      // the daemon, at once
};

struct Fault {
    std::string_view name;
    Effect effect;
    int64_t value = 0;
    uint32_t times = 1;
    Disturbance disturbance = Disturbance::kNone;
};

// All faults that fit; the name tells them apart.
std::vector<Fault> faults_for(Occasion kind);

// One fault on one occasion, as "open-channel@3=EBUSY".
struct Plan {
    Occasion occasion;
    uint32_t number;  // from 1
    Fault fault;
};
std::string text_of(const Plan& plan);

Plan parse_plan(const std::string& text);  // throws PlanError

// Counts the occasions of a run, and says when the fault strikes.
class Occasions {
  public:
    explicit Occasions(std::optional<Plan> plan) : plan_(plan) {}

    // To be called on each occasion. `detail`: what a repetition must agree in (the path).
    std::optional<Fault> strikes(Occasion kind, const std::string& detail);
    const std::map<Occasion, uint32_t>& counts() const { return counts_; }
    // The detail of the occasion on which the fault struck; none: it has not.
    const std::optional<std::string>& struck_at() const { return struck_at_; }

  private:
    const std::optional<Plan> plan_;
    std::map<Occasion, uint32_t> counts_;
    std::optional<std::string> struck_at_;
    uint32_t repetitions_left_ = 0;
};

}  // namespace sweep
