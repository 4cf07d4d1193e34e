// SPDX-License-Identifier: Apache-2.0
#include "sim/soak_trial.h"

#include "sim/event.h"

namespace sim {

using namespace std::chrono_literals;

namespace {

// With misc data to push a restart takes more than three seconds, without it hardly more than the
// one after which the daemon tries again to open a channel.
constexpr uint32_t kRestartsForPush = 10;
constexpr uint32_t kFirstRestarts = 3;    // until everything has been done once
constexpr uint64_t kEnoughRequests = 20;  // to see that the memory is served
constexpr Time kLongestStep = 30s;
// For what the allocator does not give back; each transport that was kept would take a kilobyte.
// AddressSanitizer keeps what was freed, for a while.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr uint64_t kMostGrowth = 32 << 20;
#else
constexpr uint64_t kMostGrowth = 256 << 10;
#endif

}  // namespace

SoakTrial::SoakTrial(const Options& options, SignalWatch& signals)
    : Trial(options, signals, find_scenario("noflash-done")->start),
      scenario_(*find_scenario("noflash-done")),
      model_(behaviour(), firmware_, *this) {}

Behaviour SoakTrial::behaviour() const {
    Behaviour behaviour = behaviour_for(scenario_, firmware_);
    behaviour.rma_goes_on = true;
    return behaviour;
}

std::string SoakTrial::command() const {
    return "soak --restarts " + std::to_string(options_.restarts);
}

void SoakTrial::perform() {
    machine_.mount(scenario_.start, model_);
    set_properties(scenario_.start.properties);
    start_daemon();
    wait_for("the memory is served", kLongestStep, [this] { return phases("rma ends") > 0; });
    for (uint32_t i = 1; i <= kFirstRestarts; ++i) restart(i == 1);
    const ProcessUsage before = usage_at_rest();
    say("after " + std::to_string(kFirstRestarts) + " restarts: " + usage_text(before));
    for (uint32_t i = 1; i <= options_.restarts; ++i) {
        restart(i % kRestartsForPush == 0);
        if (i % 50 == 0) say("after " + std::to_string(i) + " more");
    }
    const ProcessUsage after = usage_at_rest();
    say("after " + std::to_string(options_.restarts) + " more: " + usage_text(after));
    if (after.threads > before.threads || after.descriptors > before.descriptors ||
        after.memory > before.memory + kMostGrowth) {
        failed("the daemon held " + usage_text(before) + ", and after " +
               std::to_string(options_.restarts) + " restarts " + usage_text(after));
    }
}

std::string SoakTrial::wrong() {
    if (!model_.failures().empty()) return model_.failures().front();
    if (!machine_.daemon_runs()) return "";
    return watch_.look(now(), machine_.daemon(), machine_.requests(), tasks_);
}

void SoakTrial::happened(const Event& event) {
    const nlohmann::json& fields = event.fields;
    const std::string direction = fields.value("direction", "");
    if (direction == "to daemon" || fields.value("change", "") == "opened") ++tasks_;
    if (fields.value("channel", "") == "rma" && direction == "from daemon") ++served_;
}

void SoakTrial::logged(const std::string& line) {
    watch_.logged();
    if (line.find("marlo is power down") != line.npos) ++power_downs_;
    if (line.find("starting rma connection") != line.npos) {
        ++starts_;
        served_ = 0;
    }
}

void SoakTrial::restart(bool pushes) {
    const uint64_t power_downs = power_downs_;
    const uint64_t starts = starts_;
    model_.restart_announced({});
    machine_.serve_channels();
    wait_for("the power-down is dealt with", kLongestStep,
             [&] { return power_downs_ > power_downs; });
    set_properties({{"vendor.zt_aon.misc_update", pushes ? "0" : "1"}});
    const uint64_t pushed = phases("misc ends");
    model_.announce_power_up();
    wait_for("the memory is served after a restart", kLongestStep,
             [&] { return starts_ > starts && served_ >= kEnoughRequests; });
    if (pushes != (phases("misc ends") > pushed)) {
        failed(pushes ? "no misc data after a restart" : "misc data that was there is pushed");
    }
}

ProcessUsage SoakTrial::usage_at_rest() {
    watch_.stir(now());
    wait_for("the daemon comes to rest", kLongestStep, [this] { return watch_.rests(now()); });
    const auto usage = usage_of(machine_.daemon());
    if (!usage) failed("the daemon is not there");
    return *usage;
}

}  // namespace sim
