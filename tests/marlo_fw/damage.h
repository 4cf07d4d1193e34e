// SPDX-License-Identifier: Apache-2.0
// Bundles as they come when something has gone wrong on their way.
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/marlo_fw/test_bundle.h"

namespace marlo_fw::test {

// Beside the directory; what is there on a device, nobody knows.
constexpr const char* kOutside = "../outside";

struct Damaged {
    Files files;
    std::vector<std::string> directories;      // stand where a file stood
    std::map<std::string, std::string> links;  // and what they lead to; likewise
    std::string story;                         // what was done
};

// The same for the same seed.
Damaged damaged_bundle(uint32_t seed);

}  // namespace marlo_fw::test
