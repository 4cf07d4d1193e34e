// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sim/faults.h"

namespace sim {

// A scenario, or one of the trials, each a command of its own.
enum class Mode { kScenario, kChaos, kKill, kSoak, kIdle };

// The command line of marlo-sim.
struct Options {
    Mode mode = Mode::kScenario;
    std::string program = "marlo-sim";  // as it was called, as a shell takes it
    std::string command;                // its arguments, likewise
    std::string scenario = "update";
    std::optional<uint32_t> devices;   // at once; none: one, in this process
    uint64_t seed = 1;                 // of a trial that chooses
    uint32_t seconds = 20;             // of chaos
    std::optional<uint32_t> episodes;  // of chaos, instead
    uint32_t times = 100;              // that the daemon is killed
    uint32_t restarts = 200;
    uint32_t idle_seconds = 5;  // for each way of being broken
    std::optional<std::filesystem::path> firmware;
    std::optional<std::filesystem::path> bt_firmware;
    std::optional<uint32_t> fragment;       // bytes
    std::optional<uint32_t> payload_limit;  // bytes
    std::optional<uint64_t> flash_rate;     // bytes per second
    std::optional<std::filesystem::path> root;
    bool keep = false;
    std::filesystem::path daemon;
    bool start_daemon = true;
    std::optional<std::filesystem::path> transcript;
    std::optional<std::filesystem::path> capture;
    std::optional<std::filesystem::path> report;
    std::optional<std::filesystem::path> trace;
    std::optional<unsigned> timeout;  // seconds
    std::vector<FaultRequest> faults;
    bool list = false;
    bool list_faults = false;
    bool quiet = false;
};

// The options, or the status to exit with at once: 0 after --help, 2 after a bad value, which has
// been reported on standard error by then.
struct ParsedOptions {
    Options options;
    std::optional<int> exit_status;
};
ParsedOptions parse_options(int count, char** arguments);

}  // namespace sim
