// SPDX-License-Identifier: Apache-2.0
// A picture of some lines on a terminal, drawn over and over in the same place.
#pragma once

#include <string_view>
#include <vector>

#include "sim/screen_text.h"

namespace sim {

// Pictures can be drawn there: it is a terminal, and one that moves its cursor.
bool can_draw(int descriptor);

// Leaves the cursor below the last picture, and visible.
class Terminal {
  public:
    // `descriptor`: one that can be drawn on.
    explicit Terminal(int descriptor);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // What a picture may take; the rest is for the line with the verdict and the shell's prompt.
    ScreenSize size() const;
    void resized() { size_changed_ = true; }
    bool size_changed() const { return size_changed_; }  // since the last picture

    // In the place of the last one.
    void draw(const std::vector<ScreenLine>& lines);
    void write(std::string_view text);

  private:
    int descriptor_;
    bool colour_;
    bool size_changed_ = false;
    bool cursor_hidden_ = false;
    size_t drawn_rows_ = 0;
};

}  // namespace sim
