// SPDX-License-Identifier: Apache-2.0
#include "sim/session.h"

#include <algorithm>
#include <csignal>
#include <iostream>

#include "sim/backing_files.h"
#include "sim/event.h"
#include "sim/served_files.h"
#include "sim/shell_text.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds kTimeout = 60s;  // many times the longest wait of the daemon, 15 s
constexpr Time kBetweenRefreshes = 50ms;        // for clocks and rates when nothing happens

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

}  // namespace

Session::Session(const Options& options, const Scenario& scenario, SignalWatch& signals,
                 Display& display)
    : options_(options),
      scenario_(visible_part(scenario, options)),
      display_(display),
      recorders_(options),
      judge_(scenario_),
      patience_(time_limit(options)),
      machine_(options, signals, *this) {
    misc_data_ = provide_misc_data(machine_.root(), options_);
    make_coprocessor();
    prepare_properties();
    machine_.mount(scenario_.start, *coprocessor_);
}

void Session::make_coprocessor() {
    FirmwareBundle firmware = provide_firmware(machine_.root(), options_, scenario_.start);
    machine_.capture(scenario_.name, firmware);
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
    for (const auto& [name, value] : scenario_.start.properties) {
        machine_.properties().set(name, value);
    }
    machine_.properties().take_changes();  // ours, from before the start
}

void Session::start() {
    if (!options_.start_daemon) {
        std::cout << "start the daemon with: MARLO_ROOT=" << shell_quoted(root()) << " "
                  << shell_quoted(fs::absolute(options_.daemon)) << std::endl;
        return;
    }
    machine_.start_daemon();
    emit(EventKind::kDaemon, {{"started", machine_.daemon()}});
}

Session::Result Session::run() {
    for (;;) {
        const SignalWatch::Arrived signals = machine_.turn(time_to_wait());
        if (signals.terminal_resized) display_.resized();
        if (signals.ending) return finish({{Verdict::kFail, "interrupted"}, signals.ending});
        give_stimuli();
        const Verdict verdict = this->verdict();
        if (verdict.outcome != Verdict::kRunning) return finish({verdict});
        display_.refresh(coprocessor_->status(), machine_.now());
    }
}

Time Session::time_to_wait() const {
    Time limit = kBetweenRefreshes;
    if (!machine_.clock_runs()) return limit;
    for (const auto& deadline :
         {coprocessor_->next_deadline(), judge_.next_deadline(), patience_.end()}) {
        if (deadline) limit = std::min(limit, *deadline - machine_.now());
    }
    return std::max(limit, Time{0});
}

void Session::daemon_logged(std::string line) {
    emit(EventKind::kDaemon, {{"line", std::move(line)}});
}

void Session::property_written(PropertyChange change) {
    emit(EventKind::kProperty,
         {{"name", std::move(change.name)}, {"value", std::move(change.value)}});
}

void Session::daemon_ended(const DaemonEnd& end) {
    if (end.exit_status) emit(EventKind::kDaemon, {{"exit", *end.exit_status}});
    if (end.signal) emit(EventKind::kDaemon, {{"signal", *end.signal}});
}

void Session::give_stimuli() {
    while (const auto stimulus = judge_.take_stimulus(machine_.now())) {
        if (const auto* change = std::get_if<PropertyChange>(&*stimulus)) {
            machine_.properties().set(change->name, change->value);
        } else {
            coprocessor_->restart_announced(std::get<Restart>(*stimulus).length);
            machine_.serve_channels();
        }
    }
}

Verdict Session::verdict() {
    const Time now = machine_.now();
    if (!machine_.clock_runs()) return {Verdict::kRunning, ""};
    Verdict verdict = judge_.verdict(*coprocessor_, now);
    if (verdict.outcome != Verdict::kRunning) return verdict;
    const std::string waiting_for = judge_.waiting_for();
    const bool busy = coprocessor_->next_deadline().has_value();
    patience_.look(bytes_done(coprocessor_->status()), busy, waiting_for, now);
    if (patience_.end() && now >= *patience_.end()) {
        const auto limit = std::chrono::duration_cast<std::chrono::seconds>(*time_limit(options_));
        return {Verdict::kFail, "nothing has moved on for " + std::to_string(limit.count()) +
                                    " s (--timeout), waiting for " + waiting_for};
    }
    return verdict;
}

// What can be looked at only when the daemon writes no more, and is, while nothing else has failed.
std::vector<Check> Session::file_checks(bool look) {
    const auto judged = [&look](const char* words, const std::string& why) -> Check {
        if (!look) return {words, Check::kNotLookedAt, {}, ""};
        return {words, why.empty() ? Check::kMet : Check::kFailed, {}, why};
    };
    std::vector<Check> checks;
    if (scenario_.end.misc_data) {
        std::string why;
        if (look) coprocessor_->misc_data_matches(misc_data_, &why);
        checks.push_back(judged("the co-processor has the misc data, byte for byte", why));
        look = look && why.empty();
    }
    if (scenario_.end.backing_files) {
        if (look) machine_.end();
        const std::string why =
            look ? difference(machine_.root().backing_directory(), coprocessor_->backing_files())
                 : "";
        checks.push_back(judged("the backing files hold its memory, byte for byte", why));
    }
    return checks;
}

// A run that has failed before its end need not have come that far.
std::vector<Check> Session::state_checks(const Verdict& verdict) const {
    std::vector<Check> checks = judge_.end(*coprocessor_);
    const bool at_end = std::any_of(checks.begin(), checks.end(), [&verdict](const Check& check) {
        return check.why == verdict.why;
    });
    if (verdict.outcome == Verdict::kPass || at_end) return checks;
    for (Check& check : checks) {
        if (check.outcome == Check::kFailed) check.outcome = Check::kNotMet;
    }
    return checks;
}

Session::Result Session::finish(Result result) {
    Ending ending = {.name = scenario_.name,
                     .description = scenario_.description,
                     .command = options_.command,
                     .interrupted = result.signal != 0,
                     .time = machine_.now()};
    if (machine_.daemon_runs()) machine_.signal_daemon(SIGKILL);
    if (recorders_.any()) ending.state = state_checks(result.verdict);
    for (Check& check : file_checks(result.verdict.outcome == Verdict::kPass)) {
        if (check.outcome == Check::kFailed) result.verdict = {Verdict::kFail, check.why};
        ending.state.push_back(std::move(check));
    }
    ending.steps = judge_.steps();
    ending.logs = judge_.logs();
    ending.verdict = result.verdict;
    show(ending);
    note_idle_faults();
    recorders_.close(ending);
    machine_.end_capture();
    return result;
}

void Session::show(const Ending& ending) {
    Display::Ending shown = {ending.verdict.outcome == Verdict::kFail && !ending.interrupted, {}};
    if (shown.failed) shown.failures = coprocessor_->failures();
    std::erase(shown.failures, ending.verdict.why);
    display_.finish(coprocessor_->status(), ending.time, shown);
}

void Session::note_idle_faults() const {
    const std::vector<bool>& struck = coprocessor_->faults().struck();
    for (size_t index = 0; index < options_.faults.size(); ++index) {
        if (struck[index]) continue;
        std::cerr << "marlo-sim: the fault " << row_of(options_.faults[index].fault).name
                  << " found no occasion\n";
    }
}

void Session::emit(EventKind kind, nlohmann::json fields) {
    event({machine_.now(), kind, std::move(fields)});
}

void Session::event(const Event& event) {
    judge_.event(event);
    if (event.kind == EventKind::kUevent)
        machine_.uevents().announce(event.fields.at("marlo_event"));
    recorders_.event(event);
    display_.event(event);
}

}  // namespace sim
