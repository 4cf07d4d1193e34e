// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "sim/display.h"
#include "sim/screen_text.h"
#include "sim/terminal.h"

namespace sim {

// Draws the session on a terminal, over and over in the same place.
class Screen : public Display {
  public:
    // `terminal`: a descriptor of one.
    Screen(int terminal, std::string scenario);

    void event(const Event& event) override;
    void refresh(const Status& status, Time now) override;
    void resized() override { terminal_.resized(); }
    void finish(const Status& status, Time now, const Ending& ending) override;

  private:
    Terminal terminal_;
    std::optional<Time> drawn_at_;
    ProgressMeter meter_;
    LogParser parser_;
    ScreenContent content_;
};

}  // namespace sim
