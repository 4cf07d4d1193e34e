// SPDX-License-Identifier: Apache-2.0
// marlo-sim: runs the daemon against a virtual co-processor and judges it.
#include <unistd.h>

#include <iostream>
#include <memory>

#include "sim/chaos/chaos_trial.h"
#include "sim/chaos/idle_trial.h"
#include "sim/daemon_log.h"
#include "sim/kill_trial.h"
#include "sim/lab/lab.h"
#include "sim/options.h"
#include "sim/plain_errors.h"
#include "sim/plain_output.h"
#include "sim/screen.h"
#include "sim/session.h"
#include "sim/soak_trial.h"

namespace {

using namespace sim;

constexpr int kPassed = 0;
constexpr int kFailed = 1;
constexpr int kCannotRun = 2;
constexpr int kSignalBase = 128;  // as shells count

std::string padded(const std::string& text, size_t columns) {
    return text + std::string(text.size() < columns ? columns - text.size() : 1, ' ');
}

void list_scenarios() {
    for (const Scenario& scenario : all_scenarios()) {
        std::cout << padded(scenario.name, 20) << scenario.description << "\n";
    }
}

void list_faults() {
    for (const FaultRow& row : all_faults()) {
        std::cout << padded(row.name, 24) << row.what << "; @N: the N-th " << row.occasion;
        if (row.value)
            std::cout << "; VALUE: " << row.value->meaning << " (" << row.usual_value << ")";
        std::cout << "\n";
    }
}

std::unique_ptr<Display> make_display(const Options& options) {
    if (options.quiet) return std::make_unique<Display>();
    if (can_draw(STDOUT_FILENO)) return std::make_unique<Screen>(STDOUT_FILENO, options.scenario);
    return std::make_unique<PlainOutput>(std::cout);
}

// `name`: of what was run.
int report(const std::string& name, const Verdict& verdict, int signal) {
    const bool passed = verdict.outcome == Verdict::kPass;
    std::cout << (passed ? "PASS " + name : "FAIL " + name + ": " + printable(verdict.why))
              << std::endl;
    if (!std::cout) {
        std::cerr
            << "marlo-sim: the verdict cannot be written to standard output, which is full or "
               "closed; give it another file\n";
        return kCannotRun;  // a verdict that nobody can read is none
    }
    if (passed) return kPassed;
    return signal ? kSignalBase + signal : kFailed;
}

void tell_next_step(const Options& options, const Session::Result& result) {
    if (result.verdict.outcome == Verdict::kPass || result.signal || options.quiet) return;
    std::cerr << "marlo-sim: "
              << (options.report ? "the page " + options.report->string()
                                 : "the same command with --report FILE.html")
              << " shows what led to this\n";
}

void tell_kept_root(const Options& options, const std::filesystem::path& root) {
    if (options.keep) std::cerr << "the root is kept: " << root.string() << std::endl;
}

// What goes wrong before the daemon runs is an error of the caller or the machine, not of the
// daemon.
int run_scenario(const Options& options, const Scenario& scenario) {
    SignalWatch signals;
    Root::sweep();
    const std::unique_ptr<Display> display = make_display(options);
    auto session = std::make_unique<Session>(options, scenario, signals, *display);
    session->start();
    Session::Result result;
    try {
        result = session->run();
    } catch (const RecordError&) {
        throw;  // whatever the daemon did, what was asked for is not there
    } catch (const std::exception& error) {
        result = {{Verdict::kFail, error.what()}};
    }
    tell_kept_root(options, session->root());
    session.reset();
    tell_next_step(options, result);
    return report(options.scenario, result.verdict, result.signal);
}

int run_lab(const Options& options, const Scenario& scenario) {
    SignalWatch signals;
    Root::sweep();
    const std::string name = options.scenario + " on " + devices_text(*options.devices);
    Lab::Result result;
    {
        const std::unique_ptr<LabDisplay> display = make_lab_display(options, name);
        result = Lab(options, scenario, signals, *display).run();
    }
    if (result.verdict.outcome != Verdict::kPass && !result.signal && !options.quiet) {
        std::cerr << "marlo-sim: --report FILE.html instead of --devices shows what leads to this "
                     "on one device\n";
    }
    return report(name, result.verdict, result.signal);
}

std::unique_ptr<Trial> make_trial(const Options& options, SignalWatch& signals) {
    switch (options.mode) {
        case Mode::kChaos:
            return std::make_unique<ChaosTrial>(options, signals);
        case Mode::kKill:
            return std::make_unique<KillTrial>(options, signals);
        case Mode::kSoak:
            return std::make_unique<SoakTrial>(options, signals);
        case Mode::kIdle:
            return std::make_unique<IdleTrial>(options, signals);
        case Mode::kScenario:
            break;
    }
    return nullptr;
}

int run_trial(const Options& options) {
    SignalWatch signals;
    Root::sweep();
    std::unique_ptr<Trial> trial = make_trial(options, signals);
    TrialResult result = trial->run();
    tell_kept_root(options, trial->root());
    const std::string name = trial->name();
    if (!result.signal)
        result.verdict.why += "; once more: " + options.program + " " + trial->command();
    trial.reset();
    return report(name, result.verdict, result.signal);
}

int run(const Options& options) {
    if (options.mode != Mode::kScenario) return run_trial(options);
    if (const Scenario* scenario = find_scenario(options.scenario)) {
        return options.devices ? run_lab(options, *scenario) : run_scenario(options, *scenario);
    }
    std::cerr << "marlo-sim: no scenario " << options.scenario << "; --list shows them\n";
    return kCannotRun;
}

}  // namespace

int main(int count, char** arguments) {
    const PlainErrors plain_errors;
    const ParsedOptions parsed = parse_options(count, arguments);
    if (parsed.exit_status) return *parsed.exit_status;
    if (parsed.options.list) {
        list_scenarios();
        return kPassed;
    }
    if (parsed.options.list_faults) {
        list_faults();
        return kPassed;
    }
    try {
        return run(parsed.options);
    } catch (const std::exception& error) {
        std::cerr << "marlo-sim: " << error.what() << std::endl;
        return kCannotRun;
    }
}
