// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "sim/coprocessor.h"

namespace sim {

// How the files of a directory differ from what they must be: each of `expected` with exactly its
// bytes, and nothing else beside them. Empty: not at all.
std::string difference(const std::filesystem::path& directory, const BackingFiles& expected);

}  // namespace sim
