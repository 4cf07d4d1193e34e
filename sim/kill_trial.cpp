// SPDX-License-Identifier: Apache-2.0
#include "sim/kill_trial.h"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <numeric>

#include "sim/backing_files.h"
#include "sim/chaos/dice.h"
#include "sim/event.h"

namespace sim {

using namespace std::chrono_literals;

namespace {

constexpr Time kLongestLife = 60s;
constexpr Time kLongestRequest = 50ms;  // else the daemon has nothing more to ask
// Of the daemon, from the moment on that the co-processor has asked: it polls, reads, takes the
// wakelock, is about the file, and answers.
constexpr uint32_t kRequests[] = {0, 1, 2, 3, 3, 3, 3, 4, 5};

// Of so many, some must have hit what matters: one in these.
constexpr uint32_t kManyTimes = 100;
constexpr int kTimesForCreation = 50;
constexpr int kTimesForWrite = 20;

}  // namespace

KillTrial::KillTrial(const Options& options, SignalWatch& signals)
    : Trial(options, signals, find_scenario("rma")->start),
      scenario_(*find_scenario("rma")),
      model_(behaviour_for(scenario_, firmware_), firmware_, *this),
      program_(rma_program(scenario_.start.rma)) {}

std::string KillTrial::name() const {
    return "kill (seed " + std::to_string(options_.seed) + ")";
}

std::string KillTrial::command() const {
    return "kill --seed " + std::to_string(options_.seed) + " --times " +
           std::to_string(options_.times);
}

// In the order of the program, so that each is still to come when it is its turn.
std::vector<KillTrial::Moment> KillTrial::choose_moments() const {
    std::vector<size_t> all(program_.steps.size());
    std::iota(all.begin(), all.end(), size_t{0});
    const auto of_kind = [&](RmaStep::Kind kind) {
        std::vector<size_t> steps;
        std::copy_if(all.begin(), all.end(), std::back_inserter(steps),
                     [&](size_t step) { return program_.steps[step].kind == kind; });
        return steps;
    };
    const std::vector<size_t> choices[] = {all, of_kind(RmaStep::kConnect),
                                           of_kind(RmaStep::kWrite), of_kind(RmaStep::kWrite)};
    DiceBox box(options_.seed);
    std::vector<Moment> moments;
    for (uint32_t i = 0; i < options_.times; ++i) {
        Dice dice = box.roll("moment");
        const std::vector<size_t>& steps = dice.one_of(choices);
        Moment moment = {steps[dice.below(static_cast<uint32_t>(steps.size()))], 0,
                         dice.one_of(kRequests), std::chrono::microseconds(dice.below(2000))};
        if (dice.one_in(6)) moment.read_back = dice.between(1, 100);
        if (dice.one_in(3)) moment.delay = 0us;
        moments.push_back(moment);
    }
    std::stable_sort(moments.begin(), moments.end(),
                     [](const Moment& a, const Moment& b) { return a.step < b.step; });
    return moments;
}

void KillTrial::perform() {
    machine_.mount(scenario_.start, model_);
    set_properties(scenario_.start.properties);
    start_daemon();
    int kills = 0;
    for (const Moment& moment : choose_moments()) {
        kill_at(moment);
        if (++kills % 10 == 0) {
            say(std::to_string(kills) + " times killed, step " + std::to_string(moment.step) +
                " of " + std::to_string(program_.steps.size()));
        }
        start_daemon();
    }
    wait_for("the co-processor's program ends", kLongestLife,
             [this] { return phases("rma ends") > 0; });
    machine_.end();
    const std::string why = difference(machine_.root().backing_directory(), model_.backing_files());
    if (!why.empty()) failed(why);
    judge_tally();
}

void KillTrial::judge_tally() const {
    const int writes = written_ + unwritten_ + torn_;
    say("under way when it was killed: " + std::to_string(creations_) + " partitions, " +
        std::to_string(writes) + " writes (" + std::to_string(written_) + " on disk, " +
        std::to_string(unwritten_) + " not, " + std::to_string(torn_) + " in part)");
    if (options_.times < kManyTimes) return;
    const auto times = static_cast<int>(options_.times);
    if (creations_ < times / kTimesForCreation || writes < times / kTimesForWrite) {
        failed("the daemon was killed beside what it was to be killed in");
    }
}

std::string KillTrial::wrong() {
    return model_.failures().empty() ? "" : model_.failures().front();
}

void KillTrial::happened(const Event& event) {
    const nlohmann::json& fields = event.fields;
    if (fields.value("channel", "") != "rma") return;
    if (fields.value("change", "") == "opened") {
        step_.reset();
        requests_ = 0;
    }
    if (fields.value("direction", "") != "to daemon") return;
    ++requests_;
    if (fields.contains("step")) step_ = fields["step"].get<size_t>();
}

bool KillTrial::reached(const Moment& moment) const {
    if (moment.read_back > 0 && (requests_ >= moment.read_back || step_)) return true;
    return step_ && *step_ >= moment.step;
}

void KillTrial::kill_at(const Moment& moment) {
    wait_for("the co-processor asks for step " + std::to_string(moment.step), kLongestLife,
             [&] { return reached(moment); });
    const uint64_t requests = machine_.requests() + moment.requests;
    const Time no_more = now() + kLongestRequest;
    wait_for("a request of the daemon", kLongestLife,
             [&] { return machine_.requests() >= requests || now() >= no_more; });
    pass(moment.delay);
    end_daemon(SIGKILL);
    wait_for("the daemon's channels are closed", 10s,
             [this] { return !model_.is_open(Channel::kRma); });
    model_.host_ended();
    look_at_files();
}

void KillTrial::look_at_files() {
    const BackingFiles before = model_.backing_files();
    const BackingFiles after = model_.backing_files(true);
    const std::set<std::string> acknowledged = model_.acknowledged_files();
    const std::string why = loss(machine_.root().backing_directory(), acknowledged, before, after);
    if (!why.empty()) failed(why);
    if (acknowledged.size() < before.size()) ++creations_;
    for (const auto& [name, bytes] : before) {
        if (bytes != after.at(name)) count_write(name, bytes, after.at(name));
    }
}

void KillTrial::count_write(const std::string& file, const Bytes& before, const Bytes& after) {
    const Bytes there = content_of(machine_.root().backing_directory() / file);
    if (there == after) {
        ++written_;
    } else if (there == before) {
        ++unwritten_;
    } else {
        ++torn_;
    }
}

}  // namespace sim
