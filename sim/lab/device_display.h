// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <optional>
#include <sstream>
#include <string>

#include "sim/display.h"
#include "sim/plain_output.h"
#include "sim/progress.h"

namespace sim {

// Shows a session to the process that started this one, through a pipe.
class DeviceDisplay : public Display {
  public:
    // `pipe`: its writing end, which outlives the display.
    explicit DeviceDisplay(int pipe) : pipe_(pipe) {}

    void event(const Event& event) override;
    void refresh(const Status& status, Time now) override;
    void finish(const Status& status, Time now, const Ending& ending) override;
    // One of device_message.h. Whoever does not read it any more does not matter.
    void tell(const std::string& message) const;

    // Bytes of the daemon that were resident at most, as far as it was seen; 0: it never was.
    uint64_t daemon_memory() const { return daemon_memory_; }

  private:
    int pipe_;
    pid_t daemon_ = 0;
    uint64_t daemon_memory_ = 0;
    std::optional<Time> told_at_;
    ProgressMeter meter_;
    std::ostringstream text_;
    PlainOutput plain_{text_};
};

}  // namespace sim
