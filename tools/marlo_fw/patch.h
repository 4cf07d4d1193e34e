// SPDX-License-Identifier: Apache-2.0
// The flash image, written as it would be served.
#pragma once

#include <cstdint>
#include <string>

#include "tools/marlo_fw/inspect.h"

namespace marlo_fw {

struct Patch {
    Inspection inspection;
    std::string output;
    uint32_t bytes = 0;
    uint32_t crc = 0;
    Findings findings;  // those about what decides the flash image
};

Patch patch(const Bundle& bundle, const std::string& output);

}  // namespace marlo_fw
