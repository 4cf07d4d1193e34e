// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "tools/marlo_fw/bundle_files.h"

namespace marlo_fw {

enum class Command { kInspect, kCompare, kPatch };
const char* command_name(Command command);

struct Options {
    Command command = Command::kInspect;
    Bundle bundle;
    bool json = false;
    std::string apps;  // what the running co-processor reports
    std::string dsp;
    std::string bt;
    std::string output;
};

struct ParsedOptions {
    Options options;
    // Set where there is nothing to do but to say this: help, or what is wrong with the arguments.
    std::optional<int> exit_status;
    std::string command;  // the one that was named, if any
    std::string help;
    std::string problem;
    std::string next;
};

ParsedOptions parse_options(int count, const char* const* arguments);

}  // namespace marlo_fw
