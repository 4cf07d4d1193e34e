// SPDX-License-Identifier: Apache-2.0
#include "sweep/verdict.h"

#include <algorithm>
#include <stdexcept>

#include "sweep/process.h"

namespace sweep {
namespace {

LifeSetup later_life(const DeviceSetup& device, const Life& life, bool reboots) {
    LifeSetup setup{&device, life.trace};
    setup.reboots = reboots;
    setup.first = false;
    return setup;
}

// What no fault excuses; empty: nothing of the kind.
std::string inexcusable(const Life& life, const std::string& usual_end) {
    if (!life.lies.empty()) return life.lies.front();
    if (life.must_abort && life.end != "aborted") return "an overlong message did not end it";
    if (life.end == "aborted" && life.may_abort) return "";
    if (life.end != "quiet" && life.end != "killed" && life.end != usual_end) {
        return "the daemon: " + life.end;
    }
    // Each call that moves something on may need a few passes and two dozen lines; each of three
    // readers makes a hundred passes at a channel that never brings anything, then twenty a second.
    const uint64_t seconds = static_cast<uint64_t>(life.seconds) + 1;
    if (life.polls > 3 * life.progress + 70 * seconds + 400) {
        return "too many polls: " + std::to_string(life.polls);
    }
    if (life.log_lines > 30 * life.progress + 150 * seconds + 1'500) {
        return "too many log lines: " + std::to_string(life.log_lines);
    }
    return "";
}

// What is required to be passed over: files whose absence stands for a default, and properties
// that cannot be written, go without a word; an image that cannot be read is served as an empty
// one, and without its platform facts another flash image is.
struct Allowance {
    std::string_view begin;  // of the path or property
    bool is_silent;
    bool flash_differs;
    bool is_decisive = false;  // the whole course may be another one
};
constexpr Allowance kAllowances[] = {
    {"/sys/class/remoteproc", true, false},
    // An empty one names subtype 0, which is the one that is supported.
    {"/sys/devices/soc0/platform_subtype_id", true, true, true},
    {"/sys/devices/soc0/", true, true},
    {"/sys/kernel/dload/", true, true},
    {"/vendor/firmware_mnt/image/tbx7700_ver_info.txt", true, false},
    {"/vendor/firmware_mnt/image/", false, true},
    {"persist.", true, false},
    {"vendor.", true, false},
};

Allowance allowance_for(const Life& life) {
    for (const Allowance& allowance : kAllowances) {
        if (life.struck_at && life.struck_at->starts_with(allowance.begin)) return allowance;
    }
    return {"", false, false};
}

bool has_reported(const Life& life, const Life& without_fault) {
    return std::any_of(life.complaints.begin(), life.complaints.end(), [&](const auto& line) {
        const auto usual = without_fault.complaints.find(line.first);
        return usual == without_fault.complaints.end() || usual->second < line.second;
    });
}

// The model's checks do not count where the fault has spoiled what was said; and of a packet that
// never came, or a result that is no failure, the daemon knows nothing: it is for the co-processor
// to ask again. A failed read may leave the rest of a packet, which then counts as the next one.
bool spoils_the_wire(const Plan& plan) {
    return plan.occasion == Occasion::kReadChannel || plan.fault.effect == Effect::kDisturbs ||
           plan.fault.effect == Effect::kLoses ||
           (plan.occasion == Occasion::kIoctl && plan.fault.effect == Effect::kGives);
}

// A check of the model that finds wrong bytes, not wrong order or a refusal.
bool is_content(const std::string& failure) {
    return failure.find(", read of ") != failure.npos ||
           failure.find(": CRC expected ") != failure.npos;
}

Judgement miss(const std::string& why) {
    return {Outcome::kMiss, why};
}

// One run, from the life that the fault strikes to the one that all is well in.
class Run {
  public:
    Run(const DeviceSetup& device, const Course& course, const Plan& plan, bool eager,
        bool shows_log)
        : device_(device), course_(course), plan_(plan), eager_(eager), shows_log_(shows_log) {}

    Judgement judge();

  private:
    Life live(LifeSetup setup);
    bool is_well(const State& state, std::vector<State> goals) const;
    Judgement judge_later(const Life& first);

    const DeviceSetup& device_;
    const Course& course_;
    const Plan& plan_;
    const bool eager_;
    const bool shows_log_;
    Allowance allowance_ = {"", false, false};
    bool has_reported_ = false;  // in any life so far
};

Life Run::live(LifeSetup setup) {
    setup.eager = eager_;
    setup.shows_log = shows_log_;
    Life life = live_in_process(setup);
    // Files can be read again in later lives.
    allowance_ = setup.plan ? allowance_for(life) : Allowance{"", false, false};
    if (allowance_.flash_differs) {
        remove(life.states, "flash");
        std::erase_if(life.lies, [](const auto& lie) { return lie.starts_with(kUntrueUpdate); });
    }
    // A CONNECT has to be acknowledged although no file could be made; but not in silence.
    has_reported_ = has_reported_ || has_reported(life, course_.first);
    if (has_reported_) {
        std::erase_if(life.lies, [](const auto& lie) { return lie.starts_with(kNoFile); });
    }
    if (spoils_the_wire(plan_)) {
        std::erase_if(life.lies, [](const auto& lie) { return lie.starts_with(kStrayFile); });
    }
    return life;
}

bool Run::is_well(const State& state, std::vector<State> goals) const {
    if (allowance_.flash_differs) remove(goals, "flash");
    return is_as_good_as(state, goals);
}

Judgement Run::judge() {
    LifeSetup setup{&device_};
    setup.plan = plan_;
    setup.goals = course_.first.states;
    const Life life = live(setup);
    const std::string bad = inexcusable(life, course_.first.end);
    if (!bad.empty()) return miss(bad);
    if (!life.struck_at) return {Outcome::kIdle, "the fault found no occasion"};
    if (allowance_.is_decisive) {
        // One that is not supported, but counts as such, is updated and stays so.
        const bool is_updated = life.failures.empty() && life.late_failures.empty() &&
                                course_.first.states.front().at(kUpdateProperty) != "1" &&
                                life.states.front().at(kUpdateProperty) == "1";
        return is_updated ? Judgement{Outcome::kRight, ""} : judge_later(life);
    }
    if (life.end != course_.first.end) return judge_later(life);  // killed, or ended by the rule
    const bool has_told = has_reported(life, course_.first);
    const bool is_spoiled = spoils_the_wire(plan_);
    if (is_well(life.states.front(), course_.first.states)) {
        for (const std::string& failure : life.failures) {
            const bool is_excused = is_spoiled || (has_told && !is_content(failure));
            if (!is_excused) return miss(failure);
        }
        return {Outcome::kRight, ""};
    }
    if (!has_told && !is_spoiled && !allowance_.is_silent) {
        return miss("nothing was reported: " + text_of(life.states.front()));
    }
    if (is_well(life.states.back(), course_.first.states)) {
        if (life.late_failures.empty()) return {Outcome::kRestarted, ""};
        return miss("after the restart: " + life.late_failures.front());
    }
    return judge_later(life);
}

// From the second life on nothing goes wrong any more.
Judgement Run::judge_later(const Life& first) {
    LifeSetup setup = later_life(device_, first, false);
    setup.goals = course_.again;
    const Life again = live(setup);
    std::string bad = inexcusable(again, course_.first.end);
    if (!bad.empty()) return miss("started again: " + bad);
    if (again.states.size() == 1 && is_well(again.states.front(), course_.again)) {
        return {Outcome::kRestored, ""};
    }
    LifeSetup last = later_life(device_, again, true);
    last.goals = course_.rebooted;
    const Life rebooted = live(last);
    bad = inexcusable(rebooted, course_.first.end);
    if (bad.empty() && !rebooted.failures.empty()) bad = rebooted.failures.front();
    if (bad.empty() && !rebooted.late_failures.empty()) bad = rebooted.late_failures.front();
    if (!bad.empty()) return miss("rebooted: " + bad);
    if (is_well(rebooted.states.back(), course_.rebooted)) return {Outcome::kRebooted, ""};
    return miss("not even a reboot helps: " + text_of(rebooted.states.back()) +
                "; at first: " + text_of(first.states.front()));
}

void expect_well(const Life& life, const std::string& scenario) {
    std::string bad = inexcusable(life, life.end);
    if (bad.empty() && !life.failures.empty()) bad = life.failures.front();
    if (bad.empty() && !life.late_failures.empty()) bad = life.late_failures.front();
    for (const State& state : life.states) {
        if (state.at("wakelock") != "released") bad = "the wakelock is held at the end";
    }
    if (!bad.empty()) throw std::runtime_error(scenario + " without a fault: " + bad);
}

}  // namespace

Course fault_free_course(const DeviceSetup& device, bool eager) {
    Course course;
    LifeSetup setup{&device};
    setup.eager = eager;
    course.first = live_in_process(setup);
    LifeSetup next = later_life(device, course.first, false);
    next.eager = eager;
    const Life again = live_in_process(next);
    next.reboots = true;
    const Life rebooted = live_in_process(next);
    expect_well(course.first, device.scenario->name);
    expect_well(again, device.scenario->name);
    expect_well(rebooted, device.scenario->name);
    course.again = again.states;
    course.again.insert(course.again.end(), course.first.states.begin(), course.first.states.end());
    course.rebooted = rebooted.states;
    course.rebooted.insert(course.rebooted.end(), course.again.begin(), course.again.end());
    return course;
}

Judgement judge(const DeviceSetup& device, const Course& course, const Plan& plan, bool eager,
                bool shows_log) {
    return Run(device, course, plan, eager, shows_log).judge();
}

}  // namespace sweep
