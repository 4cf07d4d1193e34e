// SPDX-License-Identifier: Apache-2.0
// A bundle read by somebody who forgives nothing: what must be served and erased where nothing is
// left to doubt. Shares no code with the daemon or with marlo-fw.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/marlo_fw/strict_xml.h"

namespace marlo_fw::test {

struct StrictBundle {
    std::map<uint32_t, std::string> images;               // as served, by id
    std::vector<std::pair<uint32_t, uint32_t>> erasures;  // offset and size, in order
    std::map<std::string, std::string> versions;          // by key
};

// For platform IDP, subtype 0, full dumps. Throws NotStrict.
StrictBundle read_strictly(const std::filesystem::path& directory);

}  // namespace marlo_fw::test
