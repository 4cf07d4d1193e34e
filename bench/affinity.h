// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bench {

// Keeps every thread that this process has now, and those that they start, on one core, or lets
// them run on all that it may use. Two threads that take turns are twice as fast or half as fast as
// the scheduler places them, so the figures that count are taken on one core.
enum class Cores { kOne, kAll };
void use_cores(Cores cores);

}  // namespace bench
