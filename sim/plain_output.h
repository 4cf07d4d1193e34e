// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <ostream>

#include "sim/display.h"

namespace sim {

// One line per step, for a file or a pipe: no control characters, nothing that is overwritten.
class PlainOutput : public Display {
  public:
    explicit PlainOutput(std::ostream& out) : out_(out) {}
    void event(const Event& event) override;
    void finish(const Status&, Time, const std::vector<std::string>& failures) override;

  private:
    std::ostream& out_;
    std::deque<std::string> log_;  // the last lines of the daemon
};

}  // namespace sim
