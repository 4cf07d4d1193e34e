// SPDX-License-Identifier: Apache-2.0
// What a virtual co-processor can be made to do wrong, by a scenario or with --fault.
//
// A fault is asked for as NAME[@N][:VALUE]. It strikes on occasions of its own, an erase request
// say: on the N-th of them, counted from 1, or on each. VALUE tells how: the error, the number of
// milliseconds, whatever the fault's row in the table says.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sim/reporter.h"

namespace sim {

enum class Fault {
    kLoadFails,
    kFlashLoadFails,
    kFlashFirmwareDamaged,
    kVersionQueryFails,
    kEraseFails,
    kStateQueryFails,
    kDfuChannelMissing,
    kHangUpAtPacket,
    kHangUpAtInfo,
    kHangUpAtFragment,
    kHangUpAtSessionEnd,
    kCancel,
    kUnknownImage,
    kRestart,
    kMiscStartRefused,
    kMiscDataRefused,
    kMiscCrcRefused,
    kMiscFinishRefused,
    kMiscAnswerMissing,
    kRmaCrcWrong,
    kRmaUnknownCommand,
    kRmaBlockOutside,
};

constexpr uint32_t kNever = UINT32_MAX;  // as the value of a time: "never"

// What the value of a fault may be.
struct FaultValue {
    const char* meaning;
    uint32_t lowest;
    uint32_t highest;
    bool may_be_never = false;
};

// One row of the table. To add a fault: an enumerator above, a row in faults.cpp, and at each of
// its occasions one call of Faults::strikes.
struct FaultRow {
    const char* name;         // on the command line
    const char* what;         // one line: what happens
    const char* occasion;     // what is counted
    const FaultValue* value;  // null: it takes none
    uint32_t usual_value;     // where none is given
    Fault fault;
};

std::span<const FaultRow> all_faults();
const FaultRow& row_of(Fault fault);

// A fault as it is asked for.
struct FaultRequest {
    Fault fault;
    std::optional<uint32_t> occasion = {};  // none: every one
    std::optional<uint32_t> value = {};     // none: the usual one
};

// A text that asks for no fault; what() names it and what is wrong.
class FaultError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Reads NAME[@N][:VALUE]. Throws FaultError.
FaultRequest parse_fault(const std::string& text);

// The same fault on the first `count` occasions.
std::vector<FaultRequest> first_occasions(Fault fault, uint32_t count);

// The faults of one co-processor.
class Faults {
  public:
    // A fault may be asked for several times; on an occasion the first request that fits it counts.
    // The reporter must outlive this object.
    Faults(std::vector<FaultRequest> requests, Reporter& reporter)
        : requests_(std::move(requests)), struck_(requests_.size(), false), reporter_(reporter) {}

    // To be called once on each occasion of the fault: its value if it strikes now.
    std::optional<uint32_t> strikes(Fault fault);

    // Of each request, in their order: whether it has found an occasion.
    const std::vector<bool>& struck() const { return struck_; }

  private:
    std::vector<FaultRequest> requests_;
    std::vector<bool> struck_;
    Reporter& reporter_;
    std::map<Fault, uint32_t> occasions_;  // so far
};

}  // namespace sim
