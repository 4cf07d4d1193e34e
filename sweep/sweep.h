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
    uint32_t fragment_size = 16384;
    bool eager = false;
    unsigned jobs = 0;  // 0: as many as there are processors
};

// Runs every scenario with every fault on every occasion, and prints a table and each miss with the
// command that repeats it. True: no miss. Throws std::runtime_error for a request that cannot be
// met.
bool run(const Options& options, std::ostream& out);

}  // namespace sweep
