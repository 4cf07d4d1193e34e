// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

namespace sweep {

// How device and daemon are at a quiet moment: what must be as in a run without a fault, by name.
using State = std::map<std::string, std::string>;

std::string text_of(const State& state);

void remove(std::vector<State>& states, const std::string& name);

// Whether it is as one of these, or better: a daemon that could not boot what is in the flash has
// brought new firmware, and keeps the download's channel and its reader.
bool is_as_good_as(const State& state, const std::vector<State>& goals);

}  // namespace sweep
