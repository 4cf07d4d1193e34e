// SPDX-License-Identifier: Apache-2.0
// Whether the daemon would update a co-processor that reports these versions.
#pragma once

#include <string>
#include <vector>

#include "tools/marlo_fw/bundle_files.h"
#include "tools/marlo_fw/version_check.h"

namespace marlo_fw {

struct VersionTest {
    std::string name;  // "apps", "bt", "dsp"
    std::string running;
    std::string shipped;
    std::string outcome;  // "match", "mismatch", "skipped", "not-reached"
};

struct Comparison {
    Bundle bundle;
    Versions versions;
    std::vector<VersionTest> tests;  // in the daemon's order
    bool updates = false;
    std::string decided_by;  // the name of the test that fails; empty without one
    bool is_without_flash = false;
    std::string log;  // the daemon's line about it
    Findings findings;
};

Comparison compare(const Bundle& bundle, const std::string& apps, const std::string& dsp,
                   const std::string& bt);

}  // namespace marlo_fw
