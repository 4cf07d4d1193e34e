// SPDX-License-Identifier: Apache-2.0
// The real daemon on the virtual co-processor, booted in FLASH mode with nothing to update, as it
// is for nearly all of its life.
//
// Both functions throw sim::MountError where there is no FUSE, and std::runtime_error where the
// daemon does not get so far.
#pragma once

#include <chrono>

namespace bench {

// From just before the daemon is started until its first command has reached the control device.
// None of the waits that the boot sequence prescribes comes before that.
double seconds_to_first_command();

struct Rest {
    double resident_bytes = 0;
    double wake_ups_per_second = 0;  // of all threads: how often each was taken off its processor
};

// Watches it for that long, after its boot.
Rest watch_resting_daemon(std::chrono::seconds length);

}  // namespace bench
