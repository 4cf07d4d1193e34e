// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

// The firmware versions shipped on the device, from the version file. Empty where nothing is said.
struct marlo_meta_info {
    std::string apps_cochip;  // application build
    std::string btfw_cochip;  // Bluetooth firmware
    std::string dsp_cochip;   // DSP firmware
};

// The value on a line of the form `"key": "value"`: what the leftmost match of the ECMAScript
// expression
//     "([^=]*)": "([^&]*)&?"
// captures second. Both groups are greedy, so that of several pairs on a line the last one counts.
// Nothing where the expression is not found. Takes one pass and no memory, however long the line.
std::optional<std::string_view> version_value(std::string_view line);

// Walks the lines of a version file. A line that contains a key's text anywhere assigns its value
// to that key's field; a later line wins over an earlier one.
marlo_meta_info parse_version_file(std::string_view text);
