// SPDX-License-Identifier: Apache-2.0
// marlo-sim: runs the daemon against a virtual co-processor and judges it.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "sim/daemon_log.h"
#include "sim/options.h"
#include "sim/plain_output.h"
#include "sim/screen.h"
#include "sim/session.h"

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

bool can_draw(int descriptor) {
    const char* terminal = std::getenv("TERM");
    return isatty(descriptor) && terminal && std::string_view(terminal) != "dumb";
}

std::unique_ptr<Display> make_display(const Options& options) {
    if (options.quiet) return std::make_unique<Display>();
    if (can_draw(STDOUT_FILENO)) return std::make_unique<Screen>(STDOUT_FILENO, options.scenario);
    return std::make_unique<PlainOutput>(std::cout);
}

int report(const Options& options, const Session::Result& result) {
    if (result.verdict.outcome == Verdict::kPass) {
        std::cout << "PASS " << options.scenario << std::endl;
        return std::cout ? kPassed : kCannotRun;  // a verdict that nobody can read is none
    }
    std::cout << "FAIL " << options.scenario << ": " << printable(result.verdict.why) << std::endl;
    return result.signal ? kSignalBase + result.signal : kFailed;
}

// What goes wrong before the daemon runs is an error of the caller or the machine, not of the
// daemon.
int run(const Options& options, const Scenario& scenario) {
    SignalWatch signals;
    Root::sweep();
    const std::unique_ptr<Display> display = make_display(options);
    auto session = std::make_unique<Session>(options, scenario, signals, *display);
    session->start();
    Session::Result result;
    try {
        result = session->run();
    } catch (const std::exception& error) {
        result = {{Verdict::kFail, error.what()}};
    }
    if (options.keep) std::cerr << "the root is kept: " << session->root().string() << std::endl;
    session.reset();
    return report(options, result);
}

}  // namespace

int main(int count, char** arguments) {
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
    const Scenario* scenario = find_scenario(parsed.options.scenario);
    if (!scenario) {
        std::cerr << "marlo-sim: no scenario " << parsed.options.scenario
                  << "; --list shows them\n";
        return kCannotRun;
    }
    try {
        return run(parsed.options, *scenario);
    } catch (const std::exception& error) {
        std::cerr << "marlo-sim: " << error.what() << std::endl;
        return kCannotRun;
    }
}
