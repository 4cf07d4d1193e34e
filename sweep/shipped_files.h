// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sweep/device.h"

namespace sweep {

// The generated firmware and misc data, in memory, for a device of this scenario.
DeviceSetup device_setup(const sim::Scenario& scenario, uint32_t fragment_size);

}  // namespace sweep
