// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/idle_trial.h"

#include <poll.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "sim/process_usage.h"

namespace sim {

using namespace std::chrono_literals;

namespace {

constexpr double kMostCpu = 1;  // per cent of one processor
constexpr Time kLongestStart = 20s;
// After so many looks at its channel in vain the daemon looks no more often, or has given up.
constexpr uint64_t kHopeless = 110;
constexpr uint64_t kOpens = 3;
constexpr Time kLongestHope = 30s;
constexpr uint32_t kForEver = ChannelTrouble::kForEver;

}  // namespace

IdleTrial::IdleTrial(const Options& options, SignalWatch& signals)
    : Trial(options, signals, find_scenario("update")->start) {}

std::string IdleTrial::command() const {
    return "idle --seconds " + std::to_string(options_.idle_seconds);
}

void IdleTrial::perform() {
    look_at("update", Channel::kDfu);
    look_at("noflash-done", Channel::kRma);
}

std::string IdleTrial::wrong() {
    return device_ ? device_->failure() : "";
}

void IdleTrial::look_at(const std::string& name, Channel channel) {
    const Way ways[] = {
        {"reads that bring nothing", {.empty_reads = kForEver}},
        {"polls that tell of an error", {.odd_polls = kForEver, .odd_events = POLLERR}},
        {"reads that fail", {.failing_reads = kForEver, .read_error = EIO}},
        {"a hang-up without return", {.failing_opens = kForEver, .open_error = ENODEV}, true},
    };
    const Scenario& scenario = *find_scenario(name);
    device_ = std::make_unique<ChaosDevice>(
        ChaosSetup{options_.seed, behaviour_for(scenario, firmware_), firmware_, misc_data_, false},
        static_cast<Observer&>(*this));
    machine_.mount(scenario.start, *device_);
    set_properties(scenario.start.properties);
    start_daemon();
    wait_for("the daemon opens the channel", kLongestStart,
             [&] { return device_->is_open(channel); });
    say(name + ", the channel broken for good:");
    for (const Way& way : ways) look_at(channel, way);
    device_->context().host_ends = true;
    end_daemon(SIGTERM);
    machine_.unmount();
}

// Nothing else is counted of a device that says nothing.
uint64_t IdleTrial::looks_in_vain() const {
    uint64_t looks = 0;
    for (const auto& [what, count] : device_->context().tally) looks += count;
    return looks;
}

void IdleTrial::look_at(Channel channel, const Way& way) {
    device_->set_trouble(channel, way.trouble);
    if (way.hangs_up) device_->hang_up(channel);
    machine_.serve_channels();
    const uint64_t looks = looks_in_vain() + (way.hangs_up ? kOpens : kHopeless);
    wait_for("the daemon has lost hope", kLongestHope, [&] { return looks_in_vain() >= looks; });
    const auto before = usage_of(machine_.daemon());
    const Time begin = now();
    const uint64_t requests = machine_.requests();
    pass(std::chrono::seconds(options_.idle_seconds));
    const auto after = usage_of(machine_.daemon());
    if (!before || !after) failed("the daemon is not there");
    const double used = static_cast<double>(Time(after->cpu - before->cpu).count());
    const double cpu = 100 * used / static_cast<double>((now() - begin).count());
    const uint64_t per_second = (machine_.requests() - requests) / options_.idle_seconds;
    char text[120];
    std::snprintf(text, sizeof text, "%.2f %% of one processor, %d requests a second: %s", cpu,
                  static_cast<int>(per_second), way.words);
    say(text);
    if (cpu >= kMostCpu) failed(text);
    if (per_second == 0 && !way.hangs_up) failed("the daemon looks at its channel no more");
}

}  // namespace sim
