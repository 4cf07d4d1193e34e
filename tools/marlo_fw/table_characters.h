// SPDX-License-Identifier: Apache-2.0
// The partition table as characters, before anything is read in it.
#pragma once

#include <cstdint>
#include <span>

#include "tools/marlo_fw/finding.h"

namespace marlo_fw {

// Characters at which the daemon stops reading, or which it reads otherwise than other readers.
void check_characters(std::span<const uint8_t> xml, Findings& findings);

}  // namespace marlo_fw
