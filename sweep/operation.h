// SPDX-License-Identifier: Apache-2.0
// One thing that was done to the simulated device, so that another process can bring a device into
// the same state: the device depends on nothing else.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sweep {

struct Operation {
    enum Kind : uint8_t {
        kAdvance,      // first: the time
        kOpen,         // text: the path; first: flags, second: mode
        kClose,        // first: the descriptor
        kRead,         // first: the descriptor, second: bytes asked for, third: the offset or -1
        kWrite,        // first: the descriptor, text: the bytes, third: the offset or -1
        kRename,       // text, other: the paths
        kUnlink,       // text: the path
        kIoctl,        // first: the descriptor, second: the number, text: the block, other: the
                       // word that it points at
        kReceive,      // the next uevent
        kSetProperty,  // text, other: name and value
        kHangUp,       // first: nanoseconds until the channels can be opened again
        kRestart,      // first: nanoseconds until the power is back
        kDisturb,      // first: a Disturbance, second: its value
        kLoseWrite,
        kUevent,  // text: a message that nobody's device has sent
        kPipe,
        kOpenUevents,
        kDaemonDies,
        kReboot,
    };
    Kind kind;
    int64_t first = 0;
    int64_t second = 0;
    int64_t third = -1;
    std::string text = {};
    std::string other = {};
};

using Trace = std::vector<Operation>;

std::string packed(const Trace& trace);
Trace unpacked(const std::string& bytes);

}  // namespace sweep
