// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "sim/observer.h"

namespace sim {

// Tells a session that has come to a standstill from one that is merely long. Moving on means: more
// bytes erased or written than ever before, or another step of the scenario reached. Time in which
// the co-processor is busy itself does not count.
class Patience {
  public:
    explicit Patience(std::optional<Time> limit) : limit_(limit) {}  // none: for ever

    // `bytes`: erased and written so far. `busy`: the co-processor has something under way.
    void look(uint64_t bytes, bool busy, const std::string& waiting_for, Time now) {
        if (bytes > most_bytes_ || busy || waiting_for != waiting_for_) moved_at_ = now;
        most_bytes_ = std::max(most_bytes_, bytes);
        waiting_for_ = waiting_for;
    }

    // When it is at an end if nothing moves on.
    std::optional<Time> end() const {
        return limit_ ? std::optional(moved_at_ + *limit_) : std::nullopt;
    }

  private:
    std::optional<Time> limit_;
    Time moved_at_{0};
    uint64_t most_bytes_ = 0;
    std::string waiting_for_;
};

}  // namespace sim
