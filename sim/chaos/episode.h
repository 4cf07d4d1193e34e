// SPDX-License-Identifier: Apache-2.0
// The course of a run with a co-processor out of order: one episode after the other, each about one
// thing that goes wrong.
#pragma once

#include <string>
#include <vector>

#include "sim/chaos/dice.h"
#include "sim/device.h"

namespace sim {

struct Episode {
    enum class Kind {
        kInOrder,        // requests as they should be
        kNoise,          // `percent` of the packets are out of order
        kRest,           // nothing happens until the daemon has come to rest
        kHangUp,         // the channel hangs up; then `count` opens fail with `error`
        kRestart,        // announced; powered up after `length`
        kNoReturn,       // the same, and not powered up
        kFalseEvent,     // `event` is announced, and is not true
        kOddEvents,      // `count` announcements that nobody understands
        kProperty,       // a property changes
        kEmptyReads,     // `count` reads of the channel bring nothing
        kOddPolls,       // `count` polls tell of an error
        kFailingReads,   // `count` reads fail with `error`
        kFailingWrites,  // `count` writes fail with `error`
        kControls,       // `count` control requests have odd results, and there is a reset
        kControlOpens,   // the control device cannot be opened `count` times, and there is a reset
        kNewDaemon,      // the daemon is ended and started again
    };
    Kind kind = Kind::kInOrder;
    std::string words = {};
    Channel channel = Channel::kRma;
    uint32_t count = 0;
    int error = 0;
    uint32_t percent = 0;
    int event = 0;
    std::string property = {};
    std::string value = {};
    Time length{0};
    uint32_t requests = 0;    // that the co-processor sends; it is over when all are dealt with, or
                              // when the daemon does nothing more
    bool until_rest = false;  // it is over then only
};

// `no_flash`: of the variant without flash.
Episode choose_episode(Dice dice, bool no_flash);

// One announcement that nobody understands; never empty, which would be the end of all.
std::string odd_announcement(Dice& dice);

}  // namespace sim
