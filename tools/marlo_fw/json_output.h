// SPDX-License-Identifier: Apache-2.0
// What is told to programs; output.schema.json describes it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/marlo_fw/compare.h"
#include "tools/marlo_fw/inspect.h"
#include "tools/marlo_fw/patch.h"

namespace marlo_fw {

using Json = nlohmann::ordered_json;

Json json_of(const Inspection& inspection);
Json json_of(const Comparison& comparison);
Json json_of(const Patch& patch);
// `command`: empty where none was named.
Json json_of_error(const std::string& command, const std::string& problem, const std::string& next);
Json json_of_help(const std::string& text);

// One value and a newline. What is no UTF-8 in it is replaced.
std::string written(const Json& value);

}  // namespace marlo_fw
