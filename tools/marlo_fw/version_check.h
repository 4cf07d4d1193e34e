// SPDX-License-Identifier: Apache-2.0
// The version file: what the daemon reads in it, and where people would read something else.
#pragma once

#include <string>

#include "fwupdater/version_line.h"
#include "tools/marlo_fw/daemon_run.h"
#include "tools/marlo_fw/finding.h"

namespace marlo_fw {

struct Versions {
    std::string file;  // the one that the daemon reads; empty where there is none
    marlo_meta_info shipped;
};

Versions check_versions(DaemonRun& run, Findings& findings);

}  // namespace marlo_fw
