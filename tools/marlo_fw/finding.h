// SPDX-License-Identifier: Apache-2.0
// What is wrong with a bundle, and what the daemon would make of it.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/marlo_fw/daemon_log.h"

namespace marlo_fw {

// What stops the command; there is no answer then.
struct Failure : std::runtime_error {
    Failure(const std::string& problem, std::string next_step)
        : std::runtime_error(problem), next(std::move(next_step)) {}
    std::string next;  // what to do about it
};

enum class Area { kTable, kImage, kFlashImage, kVersions, kPlatform };

struct Finding {
    Area area;
    std::string code;              // the same for the same sort of finding
    std::string element;           // where it is: file, line, partition
    std::string value;             // what is there
    std::string consequence;       // what the daemon would do
    std::vector<std::string> log;  // and what it would log
};

const char* area_name(Area area);

// The first findings of each area in the order in which they were made, and how many there are.
class Findings {
  public:
    static constexpr size_t kMostKept = 200;  // of an area; nobody reads more

    void add(Finding finding);
    const std::vector<Finding>& kept() const { return kept_; }
    uint64_t total() const { return total_; }

  private:
    std::vector<Finding> kept_;
    std::map<Area, size_t> kept_of_;
    uint64_t total_ = 0;
};

// The texts of the lines that complain.
std::vector<std::string> complaints(const std::vector<LogLine>& log);

}  // namespace marlo_fw
