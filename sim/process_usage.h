// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace sim {

// What a process takes of the machine, as /proc tells.
struct ProcessUsage {
    std::chrono::milliseconds cpu{0};  // since it began; in steps of 10 ms
    uint64_t memory = 0;               // resident bytes
    int threads = 0;
    int descriptors = 0;
};

// None: there is no such process any more.
std::optional<ProcessUsage> usage_of(pid_t process);

// Bytes that were resident at most; 0: there is no such process any more.
uint64_t peak_memory_of(pid_t process);

// "3 threads, 9 descriptors, 8.12 MiB"
std::string usage_text(const ProcessUsage& usage);

}  // namespace sim
