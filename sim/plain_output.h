// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <ostream>
#include <string>

#include "sim/display.h"

namespace sim {

// One line per step, for a file or a pipe: no control characters, nothing that is overwritten.
class PlainOutput : public Display {
  public:
    explicit PlainOutput(std::ostream& out) : out_(out) {}
    void event(const Event& event) override;
    void finish(const Status&, Time, const Ending& ending) override;

  private:
    void print(Time time, const std::string& text);

    std::ostream& out_;
    std::string state_;            // the co-processor's, as printed last
    std::deque<std::string> log_;  // the last lines of the daemon
};

}  // namespace sim
