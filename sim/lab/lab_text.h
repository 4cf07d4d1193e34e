// SPDX-License-Identifier: Apache-2.0
// Many devices, in words. Nothing here knows of a terminal, but for the size of a picture.
#pragma once

#include <string>
#include <vector>

#include "sim/lab/device_state.h"
#include "sim/screen_text.h"

namespace sim {

using DeviceStates = std::vector<DeviceState>;

std::string devices_text(size_t count);  // "50 devices"
// "device 7 passed in 3.3 s; ..."; of one that has ended.
std::string end_text(const DeviceState& device);
uint64_t bytes_moved(const DeviceStates& devices);
// "61% moved, 7.1 MB; 12 of 50 devices ended"; no figure is ever less than before.
std::string progress_text(const DeviceStates& devices);
// How many passed and failed, how long that took, and what each cost.
std::string summary_text(const DeviceStates& devices, Time now);
// How the first failures came about, in lines; empty if there are none.
std::vector<std::string> failure_texts(const DeviceStates& devices);
// "3 failed: 7, 12-13"
std::string failed_numbers(const DeviceStates& devices);

// The whole of it in at most `size.rows` lines: a row for each device as far as they suffice, first
// those that failed and those that are under way.
std::vector<ScreenLine> render(const std::string& title, const DeviceStates& devices, Time now,
                               ScreenSize size);

}  // namespace sim
