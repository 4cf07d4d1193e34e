// SPDX-License-Identifier: Apache-2.0
// The daemon against a co-processor out of order, for some time; then against one in order, by
// which it must have all that it is there for.
#pragma once

#include "sim/chaos/chaos_device.h"
#include "sim/chaos/course.h"
#include "sim/daemon_watch.h"
#include "sim/trial.h"

namespace sim {

class ChaosTrial : public Trial {
  public:
    // options.seed: what happens; options.seconds, or rather options.episodes where it is given:
    // how much of it before all is in order.
    ChaosTrial(const Options& options, SignalWatch& signals);

    std::string name() const override;
    std::string command() const override;

  private:
    void perform() override;
    std::string wrong() override;
    void logged(const std::string&) override { watch_.logged(); }
    bool may_end(const DaemonEnd& end) override;

    bool goes_on() const;
    void play();
    void begin(const Episode& episode);
    void begin_daemon();
    void replace_daemon();
    void renew_daemon();
    void come_to_rest();
    void put_in_order();
    void check_files();
    void tell_tally();
    bool served() const;

    const bool no_flash_;
    const Scenario& scenario_;  // in order; it is what the run begins and ends with
    ChaosDevice device_;
    Course course_;
    DaemonWatch watch_;
    DaemonLimits limits_;
    bool aborted_ = false;  // as it had to: another daemon is due
    std::optional<Time> abort_due_since_;
    uint64_t aborts_ = 0;
};

}  // namespace sim
