// SPDX-License-Identifier: Apache-2.0
#include "sweep/sweep.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <iomanip>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <thread>

#include "sweep/shipped_files.h"
#include "sweep/soak.h"
#include "sweep/verdict.h"

namespace sweep {
namespace {

constexpr size_t kOutcomes = static_cast<size_t>(Outcome::kMiss) + 1;
using Counts = std::array<uint64_t, kOutcomes>;

// What a child hands back for each of its runs, as a line "OUTCOME FAULT [WHY]".
struct Tally {
    std::map<std::string, Counts> by_kind;  // occasion and effect
    std::vector<std::string> misses;        // in words, with the command
};

std::vector<const sim::Scenario*> chosen(const Options& options) {
    std::vector<const sim::Scenario*> scenarios;
    for (const std::string& name : options.scenarios) {
        const sim::Scenario* const scenario = sim::find_scenario(name);
        if (scenario == nullptr) {
            throw std::runtime_error("no scenario " + name + " (./dev run --list names them)");
        }
        scenarios.push_back(scenario);
    }
    if (!scenarios.empty()) return scenarios;
    for (const sim::Scenario& scenario : sim::all_scenarios()) scenarios.push_back(&scenario);
    return scenarios;
}

void list(std::ostream& out) {
    for (const Occasion kind : all_occasions()) {
        out << occasion_name(kind) << ":";
        for (const Fault& fault : faults_for(kind)) out << " " << fault.name;
        out << "\n";
    }
}

bool is_known(const std::string& fault_name) {
    const auto occasions = all_occasions();
    return std::any_of(occasions.begin(), occasions.end(), [&](Occasion kind) {
        const auto faults = faults_for(kind);
        return std::any_of(faults.begin(), faults.end(),
                           [&](const Fault& fault) { return fault.name == fault_name; });
    });
}

std::vector<Plan> plans_for(const Life& life, const Options& options) {
    std::vector<Plan> plans;
    uint32_t skipped = 0;
    for (const auto& [name, count] : life.occasions) {
        for (uint32_t number = 1; number <= count; ++number) {
            const Occasion kind = occasion_named(name);
            for (const Fault& fault : faults_for(kind)) {
                if (options.fault && fault.name != *options.fault) continue;
                if (++skipped % options.every == 0) plans.push_back({kind, number, fault});
            }
        }
    }
    return plans;
}

std::string command_for(const Options& options, const sim::Scenario& scenario, const Plan& plan) {
    std::string command = "./dev sweep " + scenario.name;
    if (options.fragment_size != Options{}.fragment_size) {
        command += " --fragment " + std::to_string(options.fragment_size);
    }
    if (options.eager) command += " --eager";
    return command + " --only '" + text_of(plan) + "'";
}

std::string kind_of_run(const Plan& plan) {
    switch (plan.fault.effect) {
        case Effect::kHangsUp:
            return "channel hang-up";
        case Effect::kRestarts:
            return "co-processor restart";
        case Effect::kKills:
            return "daemon killed";
        default:
            return occasion_name(plan.occasion);
    }
}

// Each of `jobs` processes takes every jobs-th plan and writes a line for each.
void run_share(const DeviceSetup& device, const Course& course, const std::vector<Plan>& plans,
               const Options& options, unsigned job, unsigned jobs, int into) {
    for (size_t i = job; i < plans.size(); i += jobs) {
        Judgement judgement = judge(device, course, plans[i], options.eager);
        std::replace(judgement.why.begin(), judgement.why.end(), '\n', ' ');
        std::string line = std::to_string(static_cast<int>(judgement.outcome)) + " " +
                           std::to_string(i) + " " + judgement.why;
        line.resize(std::min<size_t>(line.size(), PIPE_BUF - 1));
        line += '\n';
        if (write(into, line.data(), line.size()) < 0) _exit(1);
    }
    _exit(0);
}

// The children write lines into `ends`, which are whole: none is longer than a pipe takes at once.
std::vector<pid_t> start_jobs(const DeviceSetup& device, const Course& course,
                              const std::vector<Plan>& plans, const Options& options,
                              const int (&ends)[2]) {
    const unsigned jobs =
        options.jobs != 0 ? options.jobs : std::max(1u, std::thread::hardware_concurrency());
    std::vector<pid_t> children;
    for (unsigned job = 0; job < jobs; ++job) {
        const pid_t child = fork();
        if (child < 0) throw std::runtime_error("no process for a job");
        if (child == 0) {
            close(ends[0]);
            run_share(device, course, plans, options, job, jobs, ends[1]);
        }
        children.push_back(child);
    }
    return children;
}

void take_lines(FILE* lines, const std::vector<Plan>& plans, const sim::Scenario& scenario,
                const Options& options, Tally& tally, size_t& runs) {
    char* line = nullptr;
    size_t room = 0;
    while (getline(&line, &room, lines) > 0) {
        int outcome = 0;
        size_t index = 0;
        int words = 0;
        if (sscanf(line, "%d %zu %n", &outcome, &index, &words) < 2) continue;
        ++runs;
        const Plan& plan = plans.at(index);
        ++tally.by_kind[kind_of_run(plan)].at(static_cast<size_t>(outcome));
        if (!is_miss(static_cast<Outcome>(outcome))) continue;
        tally.misses.push_back(std::string(line + words) + "    " +
                               command_for(options, scenario, plan));
    }
    free(line);
}

size_t sweep_scenario(const Options& options, const sim::Scenario& scenario, Tally& tally,
                      std::ostream& out) {
    const DeviceSetup device = device_setup(scenario, options.fragment_size);
    const Course course = fault_free_course(device, options.eager);
    const std::vector<Plan> plans = plans_for(course.first, options);
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe for the jobs");
    out.flush();
    const std::vector<pid_t> jobs = start_jobs(device, course, plans, options, ends);
    close(ends[1]);
    const std::unique_ptr<FILE, decltype(&fclose)> lines(fdopen(ends[0], "r"), &fclose);
    size_t runs = 0;
    take_lines(lines.get(), plans, scenario, options, tally, runs);
    bool all_ended_well = true;
    for (const pid_t job : jobs) {
        int status = 0;
        waitpid(job, &status, 0);
        all_ended_well = all_ended_well && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    if (!all_ended_well || runs != plans.size()) {
        throw std::runtime_error(scenario.name + ": a job has ended early");
    }
    out << std::left << std::setw(16) << scenario.name << std::right << std::setw(7) << runs
        << " runs" << std::endl;
    return runs;
}

void print(const Tally& tally, size_t runs, std::ostream& out) {
    out << "\n" << std::left << std::setw(22) << "fault at" << std::right;
    for (const char* title : {"runs", "right", "restart", "start", "reboot", "miss"}) {
        out << std::setw(9) << title;
    }
    out << "\n";
    Counts all{};
    const auto row = [&out](const std::string& name, const Counts& counts) {
        uint64_t struck = 0;
        for (size_t i = 1; i < kOutcomes; ++i) struck += counts[i];
        out << std::left << std::setw(22) << name << std::right << std::setw(9) << struck;
        for (size_t i = 1; i < kOutcomes; ++i) out << std::setw(9) << counts[i];
        out << "\n";
    };
    for (const auto& [name, counts] : tally.by_kind) {
        row(name, counts);
        for (size_t i = 0; i < kOutcomes; ++i) all[i] += counts[i];
    }
    row("all", all);
    out << "\n";
    for (const std::string& text : tally.misses) out << "MISS " << text << "\n";
    out << (tally.misses.empty() ? "PASS" : "FAIL") << " sweep: " << runs << " runs, "
        << tally.misses.size() << " misses" << std::endl;
}

bool run_one(const Options& options, const sim::Scenario& scenario, std::ostream& out) {
    const DeviceSetup device = device_setup(scenario, options.fragment_size);
    const Course course = fault_free_course(device, options.eager);
    const Judgement judgement =
        judge(device, course, parse_plan(*options.only), options.eager, true);
    constexpr const char* kWords[] = {"MISS",
                                      "right by itself",
                                      "right after a restart of the co-processor",
                                      "right after a new start of the daemon",
                                      "right once the device was rebooted",
                                      "MISS"};
    out << "without the fault: " << text_of(course.first.states.front()) << "\n"
        << kWords[static_cast<size_t>(judgement.outcome)] << (judgement.why.empty() ? "" : ": ")
        << judgement.why << std::endl;
    return !is_miss(judgement.outcome);
}

}  // namespace

bool run(const Options& options, std::ostream& out) {
    if (options.lists) {
        list(out);
        return true;
    }
    if (options.fault && !is_known(*options.fault)) {
        throw std::runtime_error("no fault " + *options.fault + " (--list shows them)");
    }
    const auto scenarios = chosen(options);
    if (options.only) {
        if (scenarios.size() != 1) throw std::runtime_error("--only needs one scenario");
        return run_one(options, *scenarios.front(), out);
    }
    if (options.soak) {
        return std::all_of(scenarios.begin(), scenarios.end(), [&](const sim::Scenario* scenario) {
            return soak(device_setup(*scenario, options.fragment_size), *options.soak, out);
        });
    }
    Tally tally;
    size_t runs = 0;
    for (const sim::Scenario* scenario : scenarios) {
        runs += sweep_scenario(options, *scenario, tally, out);
    }
    if (runs == 0) throw std::runtime_error("no run is chosen");
    print(tally, runs, out);
    return tally.misses.empty();
}

}  // namespace sweep
