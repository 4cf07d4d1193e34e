// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace marlo_fw {

struct Answer {
    std::string output;  // for standard output
    std::string error;   // for standard error
    int exit_status = 0;
};

// The whole command but for its descriptors: 0, 1 or 2 as its help says.
Answer run(int count, const char* const* arguments, bool in_colour);

}  // namespace marlo_fw
