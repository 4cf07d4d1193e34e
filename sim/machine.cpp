// SPDX-License-Identifier: Apache-2.0
#include "sim/machine.h"

#include <poll.h>

#include <csignal>
#include <ctime>
#include <stdexcept>
#include <utility>
#include <vector>

namespace sim {
namespace {

// The kernel itself sends one request to each mount when it is made.
constexpr uint64_t kRequestsOfTheKernel = 2;

}  // namespace

Machine::Machine(const Options& options, SignalWatch& signals, Watcher& watcher)
    : options_(options),
      signals_(signals),
      watcher_(watcher),
      root_(options.root, options.keep),
      properties_(root_.path()),
      uevents_(root_.path()) {}

Machine::~Machine() = default;

void Machine::capture(const std::string& what, const FirmwareBundle& firmware) {
    if (!options_.capture) return;
    capture_.emplace(*options_.capture, what);
    capture_->name_firmware(firmware);
}

void Machine::end_capture() {
    if (capture_) capture_->close();
}

void Machine::mount(const Start& start, Device& device) {
    device_ = capture_ ? &capture_->around(device) : &device;
    files_ = std::make_unique<DeviceFs>(root_.path(), start, *device_);
}

void Machine::start_daemon(const DaemonLimits& limits) {
    if (!begin_) begin_clock();
    daemon_ = std::make_unique<DaemonProcess>(options_.daemon, root_.path(), limits);
    daemon_runs_ = true;
}

// In this order: else the daemon may hang in a request that nobody answers.
void Machine::end() {
    if (daemon_) daemon_->signal(SIGKILL);
    files_.reset();
    daemon_.reset();
    daemon_runs_ = false;
}

SignalWatch::Arrived Machine::turn(Time limit) {
    wait(limit);
    const SignalWatch::Arrived signals = signals_.take();
    if (signals.ending) return signals;
    take_log();
    take_properties();
    if (signals.child_ended) take_daemon_end();
    answer_requests();
    device_->set_time(now());
    serve_channels();
    return signals;
}

void Machine::wait(Time limit) {
    std::vector<pollfd> sources = {{signals_.descriptor(), POLLIN, 0},
                                   {properties_.descriptor(), POLLIN, 0},
                                   {daemon_ ? daemon_->log_descriptor() : -1, POLLIN, 0}};
    for (const auto& mount : files_->mounts()) sources.push_back({mount->descriptor(), POLLIN, 0});
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    const timespec timeout = {seconds.count(), static_cast<long>((limit - seconds).count())};
    ppoll(sources.data(), sources.size(), &timeout, nullptr);
}

void Machine::answer_requests() {
    for (const auto& mount : files_->mounts()) {
        const FuseMount::Received received = mount->receive();
        if (received == FuseMount::Received::kNothing) continue;
        if (received == FuseMount::Received::kUnmounted) {
            throw std::runtime_error("somebody has unmounted the device files");
        }
        if (++requests_ > kRequestsOfTheKernel && !begin_) begin_clock();
        // What the daemon wrote before this request has arrived by now, and comes first.
        take_log();
        take_properties();
        device_->set_time(now());
        mount->answer();
        serve_channels();
    }
}

void Machine::begin_clock() {
    begin_ = std::chrono::steady_clock::now();
}

Time Machine::now() const {
    return begin_ ? std::chrono::steady_clock::now() - *begin_ : Time{0};
}

void Machine::take_log() {
    if (!daemon_) return;
    for (std::string& line : daemon_->take_log()) watcher_.daemon_logged(std::move(line));
}

void Machine::take_properties() {
    for (PropertyChange& change : properties_.take_changes()) {
        watcher_.property_written(std::move(change));
    }
}

void Machine::take_daemon_end() {
    if (!daemon_) return;
    const std::optional<DaemonEnd> end = daemon_->take_end();
    if (!end) return;
    daemon_runs_ = false;
    take_log();
    take_properties();
    watcher_.daemon_ended(*end);
}

}  // namespace sim
