// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "sim/observer.h"

namespace sim {

// What happened in one line of plain words, for somebody who follows the session. None for what is
// too frequent or too small to be a step of its own: packets, wakelocks, lines of the log.
std::optional<std::string> describe(const Event& event);

}  // namespace sim
