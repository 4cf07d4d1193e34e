// SPDX-License-Identifier: Apache-2.0
// How a virtual co-processor behaves: what a scenario or the command line can choose.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/faults.h"

namespace sim {

constexpr int kHostMode = 0;
constexpr int kFlashMode = 1;

// "HOST", "FLASH", or the number.
std::string boot_mode_name(int mode);

// What the co-processor says about the firmware that it runs.
struct Versions {
    uint32_t kapi = 0x03010007;  // major in bits 31-24, minor in bits 23-16, patch in bits 15-0
    std::string apps;            // each text: at most 99 bytes, the rest is cut off
    std::string dsp;
    std::string bt;
};

// What the co-processor does with its memory on the host: a few partitions of all sizes with every
// corner once, or eight with some hundred random reads and writes.
enum class RmaLength { kShort, kLong };

struct Behaviour {
    int boot_mode = kFlashMode;  // the mode set before the daemon starts
    bool running = false;        // already loaded when the daemon starts
    Versions versions;
    uint32_t fragment_size = 4096;  // bytes asked for in one request for a piece of an image
    uint64_t flash_rate = 0;        // bytes per second that are erased or written; 0: at once
    uint32_t payload_limit = 4096;  // largest misc data packet, header included; at least 17
    RmaLength rma = RmaLength::kShort;
    bool rma_goes_on = false;      // reads all back also at openings after the end of its program
    bool misses_requests = false;  // the control device: some of the host never reach it
    std::vector<FaultRequest> faults;
};

}  // namespace sim
