// SPDX-License-Identifier: Apache-2.0
// What a daemon costs whose channel is broken for good.
#pragma once

#include "sim/chaos/chaos_device.h"
#include "sim/trial.h"

namespace sim {

class IdleTrial : public Trial {
  public:
    // options.idle_seconds: for how long each way of being broken is looked at.
    IdleTrial(const Options& options, SignalWatch& signals);

    std::string name() const override { return "idle"; }
    std::string command() const override;

  private:
    struct Way {
        const char* words;
        ChannelTrouble trouble;
        bool hangs_up = false;
    };

    void perform() override;
    std::string wrong() override;
    void look_at(const std::string& scenario, Channel channel);
    void look_at(Channel channel, const Way& way);
    uint64_t looks_in_vain() const;

    std::unique_ptr<ChaosDevice> device_;
};

}  // namespace sim
