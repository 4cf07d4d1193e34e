// SPDX-License-Identifier: Apache-2.0
// The variant without flash restarted over and over: in the end the daemon must hold no more than
// in the beginning.
#pragma once

#include "sim/daemon_watch.h"
#include "sim/trial.h"

namespace sim {

class SoakTrial : public Trial {
  public:
    // options.restarts: how many.
    SoakTrial(const Options& options, SignalWatch& signals);

    std::string name() const override { return "soak"; }
    std::string command() const override;

  private:
    void perform() override;
    std::string wrong() override;
    void happened(const Event& event) override;
    void logged(const std::string& line) override;

    Behaviour behaviour() const;
    void restart(bool pushes);
    ProcessUsage usage_at_rest();

    const Scenario& scenario_;
    Coprocessor model_;
    DaemonWatch watch_;
    uint64_t tasks_ = 0;        // as the watch counts them
    uint64_t power_downs_ = 0;  // that the daemon has dealt with
    uint64_t starts_ = 0;       // of its memory service, for which it opens the channel anew
    uint64_t served_ = 0;       // requests, since then
};

}  // namespace sim
