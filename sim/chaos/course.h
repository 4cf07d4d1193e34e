// SPDX-License-Identifier: Apache-2.0
// The course of a run with a co-processor out of order: one episode after the other, on the
// device's side. Which they are, and what goes wrong in each, follows from the seed alone: an
// episode lasts until the co-processor has had its say, never for some time, and no episode depends
// on how many choices there were before it.
#pragma once

#include "sim/chaos/chaos_device.h"
#include "sim/chaos/episode.h"

namespace sim {

class Course {
  public:
    // The device must outlive the course. `no_flash`: of the variant without flash.
    Course(ChaosDevice& device, bool no_flash) : device_(device), no_flash_(no_flash) {}

    // The next episode begins. What it does to others than the co-processor is up to the caller.
    const Episode& begin_next();
    // The co-processor has sent all that it had to, and everything was dealt with.
    bool done() const { return device_.done(episode_.channel); }
    // Whether or not it was done.
    void end();

    uint32_t episodes() const { return episodes_; }  // begun so far

  private:
    ChannelTrouble trouble() const;
    void begin();

    ChaosDevice& device_;
    const bool no_flash_;
    Episode episode_;
    uint32_t episodes_ = 0;
};

}  // namespace sim
