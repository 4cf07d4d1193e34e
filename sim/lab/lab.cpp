// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/lab.h"

#include <poll.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/lab/device_message.h"
#include "sim/lab/device_run.h"
#include "sim/root.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr auto kLongestWait = 50ms;   // for the displays' clocks
constexpr Time kLongestEnding = 10s;  // many times what a device takes to unmount and clean up

}  // namespace

Lab::Lab(const Options& options, const Scenario& scenario, SignalWatch& signals,
         LabDisplay& display)
    : options_(options), scenario_(scenario), signals_(signals), display_(display) {
    root_is_new_ = options.root && !fs::exists(*options.root);
    for (unsigned number = 1; number <= options.devices.value_or(1); ++number) {
        devices_.push_back({number});
    }
}

Lab::~Lab() = default;

Lab::Result Lab::run() {
    for (;;) {
        start_devices();
        if (running_.empty()) break;
        wait();
        const SignalWatch::Arrived signals = signals_.take();
        if (signals.terminal_resized) display_.resized();
        if (signals.ending) {
            signal_ = signals.ending;
            end_devices(SIGTERM);
        }
        if (patience_ && now() > *patience_) end_devices(SIGKILL);
        take_messages();
        if (cannot_run_.empty()) display_.refresh(devices_, now());
    }
    clean_up();
    if (!cannot_run_.empty()) throw std::runtime_error(cannot_run_);
    display_.finish(devices_, now());
    print_notes();
    return result();
}

void Lab::start_devices() {
    while (next_ < devices_.size() && running_.size() < kMostAtOnce && !patience_) {
        start(devices_[next_]);
    }
}

void Lab::start(DeviceState& device) {
    Options options = options_;
    options.root = root_of(device);
    try {
        running_[next_] = std::make_unique<DeviceProcess>(
            [this, &options](int pipe) { run_device(options, scenario_, pipe); });
    } catch (const std::runtime_error& error) {
        give_up(device, error.what());
        return;
    }
    device.started = true;
    device.begun = now();
    ++next_;
}

std::optional<fs::path> Lab::root_of(const DeviceState& device) const {
    if (!options_.root) return {};
    return *options_.root / std::to_string(device.number);
}

void Lab::wait() const {
    std::vector<pollfd> sources = {{signals_.descriptor(), POLLIN, 0}};
    for (const auto& [index, process] : running_) {
        sources.push_back({process->descriptor(), POLLIN, 0});
    }
    poll(sources.data(), sources.size(), static_cast<int>(kLongestWait.count()));
}

void Lab::take_messages() {
    for (auto entry = running_.begin(); entry != running_.end();) {
        DeviceState& device = devices_[entry->first];
        for (const std::string& line : entry->second->take_lines()) take_message(line, device);
        if (!entry->second->has_ended()) {
            ++entry;
            continue;
        }
        take_end(device, *entry->second);
        entry = running_.erase(entry);
    }
}

void Lab::take_end(DeviceState& device, const DeviceProcess& process) {
    device.ended = now();
    if (!device.end) {
        cleaned_up_ = false;
        device.end = {DeviceEnd::Outcome::kFailed,
                      "its virtual co-processor " + process.how_it_ended()};
    }
    // One that was told to end has not failed.
    if (patience_ && !device.passed()) {
        device.end.reset();
    } else if (device.end->outcome == DeviceEnd::Outcome::kCannotRun) {
        give_up(device, device.end->why);
    } else {
        display_.ended(device);
    }
}

void Lab::give_up(const DeviceState& device, const std::string& why) {
    cannot_run_ = "device " + std::to_string(device.number) + " of " +
                  std::to_string(devices_.size()) + ": " + why;
    const bool others_run = std::any_of(devices_.begin(), devices_.end(),
                                        [](const auto& other) { return other.daemon_runs; });
    if (others_run) cannot_run_ += "; others run already, so fewer --devices may do";
    end_devices(SIGTERM);
}

void Lab::end_devices(int signal) {
    for (const auto& [index, process] : running_) process->signal(signal);
    patience_ = now() + kLongestEnding;
}

// What a device did that was killed, in its place.
void Lab::clean_up() {
    if (!cleaned_up_ && !options_.root) Root::sweep();
    if (!options_.root) return;
    for (const DeviceState& device : devices_) {
        if (!cleaned_up_) Root::remove_left_over(*root_of(device));
    }
    std::error_code not_empty;
    if (root_is_new_) fs::remove(*options_.root, not_empty);
}

// What several say is printed once.
void Lab::print_notes() const {
    std::vector<std::pair<std::string, std::vector<unsigned>>> notes;
    for (const DeviceState& device : devices_) {
        for (const std::string& note : device.notes) {
            auto found = std::find_if(notes.begin(), notes.end(),
                                      [&](const auto& other) { return other.first == note; });
            if (found == notes.end()) found = notes.insert(found, {note, {}});
            found->second.push_back(device.number);
        }
    }
    for (const auto& [note, numbers] : notes) {
        std::cerr << note << " ("
                  << (numbers.size() == 1 ? "device " + std::to_string(numbers.front())
                                          : devices_text(numbers.size()))
                  << ")\n";
    }
    if (options_.keep && options_.root) {
        std::cerr << "the roots are kept, a directory each in " << options_.root->string() << "\n";
    }
}

Lab::Result Lab::result() const {
    if (signal_) return {{Verdict::kFail, "interrupted"}, signal_};
    const bool passed = std::all_of(devices_.begin(), devices_.end(),
                                    [](const DeviceState& device) { return device.passed(); });
    if (passed) return {{Verdict::kPass, ""}};
    return {{Verdict::kFail, failed_numbers(devices_)}};
}

}  // namespace sim
