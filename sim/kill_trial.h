// SPDX-License-Identifier: Apache-2.0
// The daemon killed at random moments while it keeps the memory of the co-processor, and started
// again each time: nothing that it has confirmed may be lost, and the co-processor goes on.
#pragma once

#include <vector>

#include "sim/rma_program.h"
#include "sim/trial.h"

namespace sim {

class KillTrial : public Trial {
  public:
    // options.seed: the moments; options.times: how many.
    KillTrial(const Options& options, SignalWatch& signals);

    std::string name() const override;
    std::string command() const override;

  private:
    // When the daemon is killed.
    struct Moment {
        size_t step;         // of the co-processor's program: a request of this step or a later
                             // one is under way
        uint32_t read_back;  // not 0: the so manieth request after the channel was opened, by
                             // which the co-processor looks what it has, or that one if sooner
        uint32_t requests;   // so many requests of the daemon to its device files later,
        std::chrono::microseconds delay;  // and after this time
    };

    void perform() override;
    std::string wrong() override;
    void happened(const Event& event) override;

    std::vector<Moment> choose_moments() const;
    bool reached(const Moment& moment) const;
    void kill_at(const Moment& moment);
    void look_at_files();
    void judge_tally() const;
    void count_write(const std::string& file, const Bytes& before, const Bytes& after);

    const Scenario& scenario_;
    Coprocessor model_;
    const RmaProgram program_;
    std::optional<size_t> step_;  // the last one asked for since the channel was opened
    uint32_t requests_ = 0;       // of the co-processor since then
    // The writes that were under way when the daemon was killed: on disk, not, in part.
    int written_ = 0;
    int unwritten_ = 0;
    int torn_ = 0;
    int creations_ = 0;  // partitions under way then
};

}  // namespace sim
