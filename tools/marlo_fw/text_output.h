// SPDX-License-Identifier: Apache-2.0
// What is told to people: lines without control characters, except for colours where asked for.
#pragma once

#include <string>

#include "tools/marlo_fw/compare.h"
#include "tools/marlo_fw/inspect.h"
#include "tools/marlo_fw/patch.h"

namespace marlo_fw {

// The last line of each says how it went.
std::string text_of(const Inspection& inspection, bool in_colour);
std::string text_of(const Comparison& comparison, bool in_colour);
std::string text_of(const Patch& patch, bool in_colour);

}  // namespace marlo_fw
