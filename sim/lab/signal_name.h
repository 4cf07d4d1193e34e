// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <string>

namespace sim {

// "SIGKILL"
inline std::string signal_name(int number) {
    const char* name = sigabbrev_np(number);
    return name ? std::string("SIG") + name : "signal " + std::to_string(number);
}

}  // namespace sim
