// SPDX-License-Identifier: Apache-2.0
// The partition table as it is written, beside what the daemon reads in it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "fwupdater/partition_table.h"
#include "tools/marlo_fw/finding.h"

namespace marlo_fw {

// `read`: what the daemon reads in these bytes. Result: where each of its partitions stands, for
// people ("partition_table.xml:12: partition 3 (\"APPS\")").
std::vector<std::string> check_table(std::span<const uint8_t> xml, const PartitionTable& read,
                                     Findings& findings);

}  // namespace marlo_fw
