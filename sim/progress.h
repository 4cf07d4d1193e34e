// SPDX-License-Identifier: Apache-2.0
// How far the session has come with what it moves at present, how fast that goes, and how long it
// will take.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/coprocessor.h"

namespace sim {

struct Progress {
    std::string what;            // "erase", "images", "misc data NAME", "remote memory"
    uint64_t done;               // bytes; never fewer than before, unless it was begun anew
    uint64_t total;              // bytes
    std::optional<double> rate;  // bytes per second, of late; none before any has moved
    std::optional<Time> remaining;
};

// Time in which the channel is away says nothing of the rate, and is left out of it.
class ProgressMeter : public Observer {
  public:
    void event(const Event& event) override;
    // To be called often: what lies between two calls is one sample. None: nothing is under way.
    std::optional<Progress> look(const Status& status, Time now);

  private:
    struct Amount {
        std::string what;
        uint64_t done;
        uint64_t total;
    };
    static std::optional<Amount> under_way(const Status& status);
    void begin(const Amount& amount, Time now);
    void sample(uint64_t done, Time now);

    std::string what_;  // empty: to begin anew
    uint64_t done_ = 0;
    Time sampled_at_{0};
    bool channel_away_ = false;
    double elapsed_ = 0;  // seconds
    // Sums in which a sample counts the less, the older it is.
    double recent_bytes_ = 0;
    double recent_seconds_ = 0;
};

}  // namespace sim
