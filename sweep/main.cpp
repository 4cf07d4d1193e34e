// SPDX-License-Identifier: Apache-2.0
// marlo-sweep: each fault on each occasion of a scenario, one run for each.
#include <CLI/CLI.hpp>
#include <iostream>

#include "sweep/sweep.h"

namespace {

constexpr int kMissed = 1;
constexpr int kCannotRun = 2;

}  // namespace

int main(int count, char** arguments) {
    sweep::Options options;
    CLI::App app("Runs the daemon on a simulated device, with each fault on each occasion.",
                 "marlo-sweep");
    app.add_option("SCENARIO", options.scenarios, "Scenarios of marlo-sim (all of them)");
    app.add_option("--only", options.only, "One fault alone, with the daemon's log")
        ->option_text("OCCASION@NUMBER=FAULT");
    app.add_option("--fault", options.fault, "Faults of this name alone, for instance hang-up")
        ->option_text("FAULT");
    app.add_flag("--list", options.lists, "Print the occasions, and the faults that fit each");
    app.add_option("--every", options.every, "One run in N alone (1)")
        ->check(CLI::Range(1u, 1'000'000u))
        ->option_text("N");
    app.add_option("--soak", options.soak, "No faults, but so many restarts of the co-processor")
        ->check(CLI::Range(2u, 1'000'000u))
        ->option_text("RESTARTS");
    app.add_option("--fragment", options.fragment_size,
                   "Bytes of an image asked for at a time (16384)")
        ->check(CLI::Range(uint32_t{1}, uint32_t{1} << 20))
        ->option_text("BYTES");
    app.add_flag("--eager", options.eager, "Each thread runs as early as it can, not as late");
    app.add_option("--jobs", options.jobs, "Runs at once (as many as there are processors)")
        ->check(CLI::Range(1u, 256u))
        ->option_text("N");
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kCannotRun;
    }
    try {
        return sweep::run(options, std::cout) ? 0 : kMissed;
    } catch (const std::exception& error) {
        std::cerr << "marlo-sweep: " << error.what() << std::endl;
        return kCannotRun;
    }
}
