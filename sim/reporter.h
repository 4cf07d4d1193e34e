// SPDX-License-Identifier: Apache-2.0
// Where the parts of the model report what happens and what the daemon does wrong.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "sim/observer.h"

namespace sim {

class Reporter {
  public:
    explicit Reporter(Observer& observer) : observer_(observer) {}

    // Never moves back.
    void set_time(Time now);
    Time now() const { return now_; }

    void emit(EventKind kind, nlohmann::json fields);
    // A failed check: remembered and emitted. A daemon that has gone astray can fail without end;
    // only the first hundred are kept.
    void fail(const std::string& what);
    const std::vector<std::string>& failures() const { return failures_; }

  private:
    Observer& observer_;
    Time now_{0};
    std::vector<std::string> failures_;
};

}  // namespace sim
