// SPDX-License-Identifier: Apache-2.0
#include "sim/behaviour.h"

namespace sim {

std::string boot_mode_name(int mode) {
    if (mode == kHostMode) return "HOST";
    if (mode == kFlashMode) return "FLASH";
    return std::to_string(mode);
}

}  // namespace sim
