// SPDX-License-Identifier: Apache-2.0
// What is in the partition table's file beside the elements that the daemon reads.
#pragma once

#include <tinyxml2.h>

#include <span>
#include <string>
#include <string_view>

#include "tools/marlo_fw/finding.h"

namespace marlo_fw {

inline constexpr const char* kTableFile = "partition_table.xml";

// "partition_table.xml:12: <Partition>"
std::string place_of(const tinyxml2::XMLNode& node);

// The place of the boot loader decides what becomes of the flash image, the rest of the table what
// becomes of the partitions.
Area area_of(const tinyxml2::XMLNode& node);

// Of an element that holds others: what the daemon overlooks there. `known` are the names of those
// that it looks for, the first of which counts; of `list` it takes every one.
void check_children(const tinyxml2::XMLNode& parent, std::span<const std::string_view> known,
                    std::string_view list, Findings& findings);

// The text of an element that holds nothing else, as it is written; other contents are found fault
// with.
std::string whole_text(const tinyxml2::XMLElement& element, Findings& findings);

}  // namespace marlo_fw
