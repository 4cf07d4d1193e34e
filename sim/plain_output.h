// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <ostream>
#include <string>
#include <utility>

#include "sim/display.h"
#include "sim/progress.h"

namespace sim {

// One line per step, for a file or a pipe: no control characters, nothing that is overwritten.
class PlainOutput : public Display {
  public:
    explicit PlainOutput(std::ostream& out) : out_(out) {}
    void event(const Event& event) override;
    // While bytes move a line says how far they are, several times a second.
    void refresh(const Status& status, Time now) override;
    void finish(const Status&, Time, const Ending& ending) override;

  private:
    void print(Time time, const std::string& text);

    std::ostream& out_;
    ProgressMeter meter_;
    Time progress_told_at_{0};
    std::pair<std::string, uint64_t> progress_told_;  // what moved then, and how many bytes had
    std::string state_;                               // the co-processor's, as printed last
    std::deque<std::string> log_;                     // the last lines of the daemon
};

}  // namespace sim
