// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sim/options.h"
#include "sim/scenario.h"

namespace sim {

// One device of many: a session, in a process that has nothing else to do. All that it has to say
// goes into `pipe`, the end last of all; standard output and error are left alone.
void run_device(const Options& options, const Scenario& scenario, int pipe);

}  // namespace sim
