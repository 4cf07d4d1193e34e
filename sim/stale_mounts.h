// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace sim {

// Detaches every mount below `directory`, also one whose server is dead, without touching it.
void unmount_below(const std::filesystem::path& directory);

}  // namespace sim
