// SPDX-License-Identifier: Apache-2.0
#include "sim/trial.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <utility>

#include "sim/daemon_log.h"
#include "sim/event.h"
#include "sim/fuse_mount.h"
#include "sim/served_files.h"

namespace sim {
namespace {

constexpr size_t kLogLines = 40;
constexpr Time kLongestTurn = std::chrono::milliseconds(20);
constexpr Time kLongestEnding = std::chrono::seconds(10);

std::string words(const DaemonEnd& end) {
    return end.signal ? "was ended by signal " + std::to_string(*end.signal)
                      : "has ended with exit status " + std::to_string(end.exit_status.value_or(0));
}

}  // namespace

Trial::Trial(const Options& options, SignalWatch& signals, const Start& start)
    : options_(options),
      machine_(options, signals, *this),
      firmware_(provide_firmware(machine_.root(), options, start)),
      misc_data_(provide_misc_data(machine_.root(), options)),
      recorders_(options) {}

TrialResult Trial::run() {
    TrialResult result = {{Verdict::kPass, ""}};
    machine_.capture(name(), firmware_);
    try {
        perform();
    } catch (const Interrupted& interrupted) {
        result = {{Verdict::kFail, "interrupted"}, interrupted.signal};
    } catch (const MountError&) {
        throw;
    } catch (const std::exception& error) {
        if (!has_run_) throw;
        result.verdict = {Verdict::kFail, error.what()};
    }
    if (result.verdict.outcome == Verdict::kFail && !result.signal && !options_.quiet) {
        std::cout << "the last lines of the daemon's log:\n";
        for (const std::string& line : log_) std::cout << "    " << printable(line) << "\n";
    }
    const Time end = now();
    machine_.end();
    recorders_.close({.name = name(),
                      .description = "",
                      .command = command(),
                      .verdict = result.verdict,
                      .interrupted = result.signal != 0,
                      .time = end});
    machine_.end_capture();
    return result;
}

void Trial::failed(const std::string& why) {
    throw Failure(why);
}

void Trial::turn(Time limit) {
    const SignalWatch::Arrived signals = machine_.turn(std::clamp(limit, Time{0}, kLongestTurn));
    if (signals.ending) throw Interrupted{signals.ending};
    if (!end_.empty()) failed(end_);
    const std::string why = wrong();
    if (!why.empty()) failed(why);
}

void Trial::wait_for(const std::string& what, Time limit, const std::function<bool()>& done) {
    const Time end = now() + limit;
    while (!done()) {
        if (now() >= end) {
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
            failed("not within " + std::to_string(seconds.count()) + " s: " + what);
        }
        turn(end - now());
    }
}

void Trial::pass(Time time) {
    const Time end = now() + time;
    while (now() < end) turn(end - now());
}

void Trial::set_properties(const std::map<std::string, std::string>& properties) {
    for (const auto& [name, value] : properties) machine_.properties().set(name, value);
}

void Trial::start_daemon(const DaemonLimits& limits) {
    machine_.start_daemon(limits);
    has_run_ = true;
    event({now(), EventKind::kDaemon, {{"started", machine_.daemon()}}});
}

void Trial::end_daemon(int number) {
    ending_ = number;
    machine_.signal_daemon(number);
    wait_for("the end of the daemon", kLongestEnding, [this] { return !machine_.daemon_runs(); });
    ending_ = 0;
}

void Trial::say(const std::string& text) const {
    if (options_.quiet) return;
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "%8.3f  ", std::chrono::duration<double>(now()).count());
    std::cout << stamp << printable(text) << std::endl;
}

uint64_t Trial::phases(const std::string& phase) const {
    const auto found = phases_.find(phase);
    return found == phases_.end() ? 0 : found->second;
}

std::string Trial::property(const std::string& name) const {
    const auto found = properties_.find(name);
    return found == properties_.end() ? "" : found->second;
}

void Trial::daemon_logged(std::string line) {
    logged(line);
    if (recorders_.any()) recorders_.event({now(), EventKind::kDaemon, {{"line", line}}});
    log_.push_back(std::move(line));
    if (log_.size() > kLogLines) log_.pop_front();
}

void Trial::property_written(PropertyChange change) {
    properties_[change.name] = change.value;
    event({now(), EventKind::kProperty, {{"name", change.name}, {"value", change.value}}});
}

void Trial::daemon_ended(const DaemonEnd& end) {
    if (end.signal) event({now(), EventKind::kDaemon, {{"signal", *end.signal}}});
    if (end.exit_status) event({now(), EventKind::kDaemon, {{"exit", *end.exit_status}}});
    if (ending_ != 0 && end.signal == ending_) return;
    if (!may_end(end)) end_ = "the daemon " + words(end);
}

void Trial::event(const Event& event) {
    if (event.kind == EventKind::kPhase) ++phases_[event.fields.at("phase")];
    if (event.kind == EventKind::kUevent) {
        machine_.uevents().announce(event.fields.at("marlo_event"));
    }
    recorders_.event(event);
    happened(event);
}

}  // namespace sim
