// SPDX-License-Identifier: Apache-2.0
// Amounts as people read them.
#pragma once

#include <string>

#include "sim/observer.h"

namespace sim {

std::string bytes_text(double bytes);  // "1.2 MB"; three digits at most before the point
std::string duration_text(Time time);  // "0:04", from an hour on "1h23m"

}  // namespace sim
