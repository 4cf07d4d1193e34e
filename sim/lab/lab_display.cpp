// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/lab_display.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <optional>
#include <utility>

#include "sim/terminal.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr Time kBetweenDrawings = 50ms;  // more often than 20 times a second nobody sees
// Together with the time between two calls of refresh this stays below a quarter of a second.
constexpr Time kBetweenLines = 150ms;

void print_ending(const DeviceStates& devices, Time now) {
    for (const std::string& line : failure_texts(devices)) std::cout << line << "\n";
    std::cout << summary_text(devices, now) << std::endl;
}

// For a file or a pipe: no control characters, nothing that is overwritten.
class LabLines : public LabDisplay {
  public:
    void ended(const DeviceState& device) override { print(*device.ended, end_text(device)); }

    void refresh(const DeviceStates& devices, Time now) override {
        if (now - told_at_ < kBetweenLines) return;
        // What stands still needs no further line.
        if (std::exchange(told_bytes_, bytes_moved(devices)) == bytes_moved(devices)) return;
        told_at_ = now;
        print(now, "progress: " + progress_text(devices));
    }

    void finish(const DeviceStates& devices, Time now) override { print_ending(devices, now); }

  private:
    // Flushed line by line: somebody may be reading the other end of a pipe.
    static void print(Time time, const std::string& text) {
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%8.3f  ", std::chrono::duration<double>(time).count());
        std::cout << stamp << text << std::endl;
    }

    Time told_at_{0};
    uint64_t told_bytes_ = 0;
};

class LabScreen : public LabDisplay {
  public:
    explicit LabScreen(std::string title) : title_(std::move(title)), terminal_(STDOUT_FILENO) {}

    void refresh(const DeviceStates& devices, Time now) override {
        if (drawn_at_ && now - *drawn_at_ < kBetweenDrawings && !terminal_.size_changed()) return;
        drawn_at_ = now;
        terminal_.draw(render(title_, devices, now, terminal_.size()));
    }

    void resized() override { terminal_.resized(); }

    void finish(const DeviceStates& devices, Time now) override {
        drawn_at_.reset();
        refresh(devices, now);
        print_ending(devices, now);
    }

  private:
    std::string title_;
    Terminal terminal_;
    std::optional<Time> drawn_at_;
};

}  // namespace

std::unique_ptr<LabDisplay> make_lab_display(const Options& options, const std::string& title) {
    if (options.quiet) return std::make_unique<LabDisplay>();
    if (can_draw(STDOUT_FILENO)) return std::make_unique<LabScreen>("marlo-sim " + title);
    return std::make_unique<LabLines>();
}

}  // namespace sim
