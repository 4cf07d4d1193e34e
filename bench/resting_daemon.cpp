// SPDX-License-Identifier: Apache-2.0
#include "bench/resting_daemon.h"

#include <fstream>
#include <optional>
#include <stdexcept>

#include "sim/coprocessor.h"
#include "sim/event.h"
#include "sim/process_usage.h"
#include "sim/trial.h"

namespace fs = std::filesystem;

namespace bench {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr sim::Time kLongestBoot = 30s;
constexpr sim::Time kSettling = 2s;  // for what follows the last command of the boot

sim::Options quiet_options() {
    sim::Options options;
    options.daemon = MARLO_DAEMON;
    options.quiet = true;
    return options;
}

// Context switches so far, wanted by the threads or not.
uint64_t switches_of(pid_t process) {
    uint64_t switches = 0;
    for (const auto& thread :
         fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream file(thread.path() / "status");
        for (std::string line; std::getline(file, line);) {
            if (const size_t name = line.find("_ctxt_switches:"); name != std::string::npos) {
                switches += std::stoull(line.substr(line.find(':') + 1));
            }
        }
    }
    return switches;
}

class RestingDaemon : public sim::Trial {
  public:
    // Without a length it is only started.
    RestingDaemon(const sim::Options& options, sim::SignalWatch& signals,
                  std::chrono::seconds length)
        : Trial(options, signals, scenario().start),
          length_(length),
          model_(sim::behaviour_for(scenario(), firmware_), firmware_, *this) {}

    std::string name() const override { return "footprint"; }
    std::string command() const override { return "bench footprint"; }

    std::optional<Clock::duration> to_first_command;
    Rest rest;

  private:
    static const sim::Scenario& scenario() { return *sim::find_scenario("current"); }

    void perform() override {
        machine_.mount(scenario().start, model_);
        set_properties(scenario().start.properties);
        const Clock::time_point begin = Clock::now();
        start_daemon();
        wait_for("the first command", kLongestBoot, [this] { return first_command_.has_value(); });
        to_first_command = *first_command_ - begin;
        if (length_ != std::chrono::seconds::zero()) {
            watch();
        }
    }

    void watch() {
        wait_for("the end of the boot", kLongestBoot, [this] { return is_booted_; });
        pass(kSettling);
        const uint64_t before = switches_of(machine_.daemon());
        pass(length_);
        const uint64_t switches = switches_of(machine_.daemon()) - before;
        const auto usage = sim::usage_of(machine_.daemon());
        if (!usage) {
            failed("the daemon is not there");
        }
        rest = {static_cast<double>(usage->memory),
                static_cast<double>(switches) / static_cast<double>(length_.count())};
    }

    void happened(const sim::Event& event) override {
        if (event.kind != sim::EventKind::kIoctl) {
            return;
        }
        if (!first_command_) {
            first_command_ = Clock::now();
        }
        is_booted_ = is_booted_ || event.fields.at("command") == "boot status";
    }

    const std::chrono::seconds length_;
    sim::Coprocessor model_;
    std::optional<Clock::time_point> first_command_;
    bool is_booted_ = false;
};

struct Observed {
    double seconds_to_first_command = 0;
    Rest rest;
};

Observed observe(std::chrono::seconds length) {
    const sim::Options options = quiet_options();
    sim::SignalWatch signals;
    RestingDaemon daemon(options, signals, length);
    const sim::TrialResult result = daemon.run();
    if (result.verdict.outcome == sim::Verdict::kFail) {
        throw std::runtime_error("the daemon cannot be watched: " + result.verdict.why);
    }
    return {std::chrono::duration<double>(daemon.to_first_command.value()).count(), daemon.rest};
}

}  // namespace

double seconds_to_first_command() {
    return observe(std::chrono::seconds::zero()).seconds_to_first_command;
}

Rest watch_resting_daemon(std::chrono::seconds length) {
    return observe(length).rest;
}

}  // namespace bench
