// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace sweep {

struct Options {
    std::vector<std::string> scenarios = {};  // none: all
    std::optional<std::string> only = {};     // one fault, see parse_plan
    std::optional<std::string> fault = {};    // those with this name alone
    bool lists = false;                       // occasions and faults, and nothing else
    uint32_t every = 1;                       // each so many-th run alone
    std::optional<uint32_t> soak = {};        // restarts of the co-processor instead of faults
    uint32_t fragment_size = 16384;
    bool eager = false;
    unsigned jobs = 0;  // 0: as many as there are processors
};

// Runs every scenario with every fault on every occasion, and prints a table and each miss with the
// command that repeats it. True: no miss. Throws std::runtime_error for a request that cannot be
// met.
bool run(const Options& options, std::ostream& out);

}  // namespace sweep
