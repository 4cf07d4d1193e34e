// SPDX-License-Identifier: Apache-2.0
// Symbolic links on the way to a file of the bundle.
#pragma once

#include <string>

#include "tools/marlo_fw/finding.h"

namespace marlo_fw {

// `file` is below `directory`. A link by an absolute path, or out of the directory, leads somewhere
// here; on the device it leads somewhere else.
void check_links(const std::string& directory, const std::string& file, Area area,
                 const std::string& place, Findings& findings);

}  // namespace marlo_fw
