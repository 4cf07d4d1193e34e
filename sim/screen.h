// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "sim/display.h"
#include "sim/screen_text.h"

namespace sim {

// Draws the session on a terminal, over and over in the same place.
class Screen : public Display {
  public:
    // `terminal`: a descriptor of one.
    Screen(int terminal, std::string scenario);
    ~Screen() override;

    void event(const Event& event) override;
    void refresh(const Status& status, Time now) override;
    void resized() override { size_changed_ = true; }
    void finish(const Status& status, Time now, const Ending& ending) override;

  private:
    void draw();
    void write(std::string_view text);

    int terminal_;
    bool colour_;
    bool size_changed_ = false;
    bool cursor_hidden_ = false;
    size_t drawn_rows_ = 0;
    std::optional<Time> drawn_at_;
    ScreenContent content_;
};

}  // namespace sim
