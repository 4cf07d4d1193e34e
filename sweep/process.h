// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sweep/simulation.h"

namespace sweep {

// Lives one life in a process of its own, which the product's process-wide state needs: what it
// left, or an `end` of "crashed: signal N", "crashed: exit N" or "hangs" where it left nothing.
// For a caller without threads.
Life live_in_process(const LifeSetup& setup);

}  // namespace sweep
