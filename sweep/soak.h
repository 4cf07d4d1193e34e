// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <iosfwd>

#include "sweep/device.h"

namespace sweep {

// Lets the co-processor restart so many times, each time once the daemon has done with the restart
// before, and prints what the daemon holds in the first tenth and at the end. True: threads and
// descriptors have not grown, and memory by no more than kSoakGrowthBytes.
bool soak(const DeviceSetup& device, uint32_t restarts, std::ostream& out);

// However many restarts: nothing is kept for any of them, but containers have not all reached their
// size in the first ones.
constexpr uint64_t kSoakGrowthBytes = 8 * 1024;

}  // namespace sweep
