// SPDX-License-Identifier: Apache-2.0
// One thing that happened, with its fields. Whoever looks at them includes this; for whoever only
// passes events on, sim/observer.h takes a fraction of the time to compile.
#pragma once

#include <nlohmann/json.hpp>

#include "sim/observer.h"

namespace sim {

struct Event {
    Time time;
    EventKind kind;
    nlohmann::json fields;
};

}  // namespace sim
