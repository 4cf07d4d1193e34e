// SPDX-License-Identifier: Apache-2.0
#include "sim/session.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <iostream>

#include "sim/backing_files.h"
#include "sim/served_files.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds kTimeout = 60s;  // many times the longest wait of the daemon, 15 s
constexpr Time kBetweenRefreshes = 100ms;       // for clocks and rates when nothing happens
// The kernel itself sends one request to each mount when it is made.
constexpr int kRequestsOfTheKernel = 2;

std::optional<Time> time_limit(const Options& options) {
    if (options.timeout) return std::chrono::seconds(*options.timeout);
    if (!options.start_daemon) return std::nullopt;  // somebody is at it with a debugger
    return kTimeout;
}

uint64_t bytes_done(const Status& status) {
    uint64_t bytes = status.erase_done + status.memory_done;
    for (const auto& [type, resource] : status.misc_data) bytes += resource.done;
    for (const ImageProgress& image : status.images) bytes += image.done;
    return bytes;
}

// A daemon that somebody else starts shows neither its log nor its end.
Scenario visible_part(Scenario scenario, const Options& options) {
    if (options.start_daemon) return scenario;
    for (const Step& step : scenario.steps) {
        if (step.words.starts_with("exit ") || step.words.starts_with("signal ")) {
            throw std::runtime_error("--no-daemon: the scenario " + scenario.name +
                                     " is about how the daemon ends, which is then not seen");
        }
    }
    scenario.logs.clear();
    return scenario;
}

// As a shell takes it back.
std::string shell_quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

}  // namespace

Session::Session(const Options& options, const Scenario& scenario, SignalWatch& signals,
                 Display& display)
    : options_(options),
      scenario_(visible_part(scenario, options)),
      signals_(signals),
      display_(display),
      root_(options.root, options.keep),
      properties_(root_.path()),
      uevents_(root_.path()),
      judge_(scenario_),
      patience_(time_limit(options)) {
    if (options_.transcript) transcript_.emplace(*options_.transcript);
    misc_data_ = provide_misc_data(root_, options_);
    make_coprocessor();
    prepare_properties();
    files_ = std::make_unique<DeviceFs>(root_.path(), scenario_.start, *coprocessor_);
}

void Session::make_coprocessor() {
    FirmwareBundle firmware = provide_firmware(root_, options_, scenario_.start);
    Behaviour behaviour = behaviour_for(scenario_, firmware);
    behaviour.faults.insert(behaviour.faults.begin(), options_.faults.begin(),
                            options_.faults.end());
    if (options_.payload_limit) behaviour.payload_limit = *options_.payload_limit;
    if (options_.fragment) behaviour.fragment_size = *options_.fragment;
    if (options_.flash_rate) behaviour.flash_rate = *options_.flash_rate;
    coprocessor_ = std::make_unique<Coprocessor>(behaviour, std::move(firmware),
                                                 static_cast<Observer&>(*this));
}

void Session::prepare_properties() {
    for (const auto& [name, value] : scenario_.start.properties) properties_.set(name, value);
    properties_.take_changes();  // ours, from before the start
}

void Session::start() {
    if (!options_.start_daemon) {
        std::cout << "start the daemon with: MARLO_ROOT=" << shell_quoted(root_.path()) << " "
                  << shell_quoted(fs::absolute(options_.daemon)) << std::endl;
        return;
    }
    begin_clock();
    daemon_ = std::make_unique<DaemonProcess>(options_.daemon, root_.path());
    emit(EventKind::kDaemon, {{"started", daemon_->pid()}});
}

Session::Result Session::run() {
    for (;;) {
        wait();
        const SignalWatch::Arrived signals = signals_.take();
        if (signals.terminal_resized) display_.resized();
        if (signals.ending) return finish({{Verdict::kFail, "interrupted"}, signals.ending});
        take_log();
        take_properties();
        if (signals.child_ended) take_daemon_end();
        answer_requests();
        advance();
        const Verdict verdict = this->verdict();
        if (verdict.outcome != Verdict::kRunning) return finish({verdict});
        display_.refresh(coprocessor_->status(), now());
    }
}

void Session::wait() {
    std::vector<pollfd> sources = {{signals_.descriptor(), POLLIN, 0},
                                   {properties_.descriptor(), POLLIN, 0},
                                   {daemon_ ? daemon_->log_descriptor() : -1, POLLIN, 0}};
    for (const auto& mount : files_->mounts()) sources.push_back({mount->descriptor(), POLLIN, 0});
    Time limit = kBetweenRefreshes;
    if (const auto deadline = next_deadline()) {
        limit = std::clamp(*deadline - now(), Time{0}, limit);
    }
    const timespec timeout = {0, static_cast<long>(limit.count())};
    ppoll(sources.data(), sources.size(), &timeout, nullptr);
}

std::optional<Time> Session::next_deadline() const {
    if (!begin_) return std::nullopt;
    std::optional<Time> next;
    for (const auto& deadline :
         {coprocessor_->next_deadline(), judge_.next_deadline(), patience_.end()}) {
        if (deadline && (!next || *deadline < *next)) next = deadline;
    }
    return next;
}

void Session::answer_requests() {
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
        coprocessor_->set_time(now());
        mount->answer();
        files_->serve_channels();
    }
}

void Session::begin_clock() {
    begin_ = std::chrono::steady_clock::now();
}

void Session::take_log() {
    if (!daemon_) return;
    for (std::string& line : daemon_->take_log()) {
        emit(EventKind::kDaemon, {{"line", std::move(line)}});
    }
}

void Session::take_properties() {
    for (PropertyChange& change : properties_.take_changes()) {
        emit(EventKind::kProperty,
             {{"name", std::move(change.name)}, {"value", std::move(change.value)}});
    }
}

void Session::take_daemon_end() {
    if (!daemon_) return;
    const std::optional<DaemonEnd> end = daemon_->take_end();
    if (!end) return;
    take_log();
    take_properties();
    if (end->exit_status) emit(EventKind::kDaemon, {{"exit", *end->exit_status}});
    if (end->signal) emit(EventKind::kDaemon, {{"signal", *end->signal}});
}

void Session::advance() {
    coprocessor_->set_time(now());
    files_->serve_channels();
    while (const auto stimulus = judge_.take_stimulus(now())) {
        if (const auto* change = std::get_if<PropertyChange>(&*stimulus)) {
            properties_.set(change->name, change->value);
        } else {
            coprocessor_->restart_announced(std::get<Restart>(*stimulus).length);
            files_->serve_channels();
        }
    }
}

Verdict Session::verdict() {
    if (!begin_) return {Verdict::kRunning, ""};
    Verdict verdict = judge_.verdict(*coprocessor_, now());
    if (verdict.outcome != Verdict::kRunning) return verdict;
    const std::string waiting_for = judge_.waiting_for();
    const bool busy = coprocessor_->next_deadline().has_value();
    patience_.look(bytes_done(coprocessor_->status()), busy, waiting_for, now());
    if (patience_.end() && now() >= *patience_.end()) {
        const auto limit = std::chrono::duration_cast<std::chrono::seconds>(*time_limit(options_));
        return {Verdict::kFail, "nothing has moved on for " + std::to_string(limit.count()) +
                                    " s (--timeout), waiting for " + waiting_for};
    }
    return verdict;
}

// What can be looked at only when the daemon writes no more.
std::string Session::wrong_files() {
    std::string why;
    if (scenario_.end.misc_data && !coprocessor_->misc_data_matches(misc_data_, &why)) return why;
    if (!scenario_.end.backing_files) return "";
    if (daemon_) {
        files_.reset();  // else it may hang in a request that nobody answers
        daemon_.reset();
    }
    return difference(root_.backing_directory(), coprocessor_->backing_files());
}

Session::Result Session::finish(Result result) {
    const Time end = now();
    if (daemon_) daemon_->kill();
    if (result.verdict.outcome == Verdict::kPass) {
        const std::string wrong = wrong_files();
        if (!wrong.empty()) result.verdict = {Verdict::kFail, wrong};
    }
    Display::Ending ending = {result.verdict.outcome == Verdict::kFail && !result.signal, {}};
    if (ending.failed) ending.failures = coprocessor_->failures();
    std::erase(ending.failures, result.verdict.why);
    display_.finish(coprocessor_->status(), end, ending);
    note_idle_faults();
    if (transcript_) transcript_->close();
    return result;
}

// The command line's faults come first among all.
void Session::note_idle_faults() const {
    const std::vector<bool>& struck = coprocessor_->faults().struck();
    for (size_t index = 0; index < options_.faults.size(); ++index) {
        if (struck[index]) continue;
        std::cerr << "marlo-sim: the fault " << row_of(options_.faults[index].fault).name
                  << " found no occasion\n";
    }
}

Time Session::now() const {
    return begin_ ? std::chrono::steady_clock::now() - *begin_ : Time{0};
}

void Session::emit(EventKind kind, nlohmann::json fields) {
    event({now(), kind, std::move(fields)});
}

void Session::event(const Event& event) {
    judge_.event(event);
    if (event.kind == EventKind::kUevent) uevents_.announce(event.fields.at("marlo_event"));
    if (transcript_) transcript_->event(event);
    display_.event(event);
}

}  // namespace sim
