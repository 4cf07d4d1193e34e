// SPDX-License-Identifier: Apache-2.0
// What the process of a device tells the one that started it: an object of JSON a line.
#pragma once

#include <string>
#include <string_view>

#include "sim/lab/device_state.h"
#include "sim/progress.h"

namespace sim {

// Each with its newline, and short enough to be written at once. Whatever text is in them arrives
// as printable ASCII, cut where it is far too long.
// The daemon runs. In bytes: moved so far, of all that is to be moved. `present`: what moves now.
std::string amount_message(uint64_t done, uint64_t total, const std::optional<Progress>& present);
std::string log_message(std::string_view line);
std::string note_message(std::string_view line);
std::string end_message(const DeviceEnd& end);

// `line`: one of the above, without its newline. Anything else changes nothing.
void take_message(const std::string& line, DeviceState& state);

}  // namespace sim
