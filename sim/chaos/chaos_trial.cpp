// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/chaos_trial.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "sim/backing_files.h"

namespace sim {

using namespace std::chrono_literals;
using Kind = Episode::Kind;

namespace {

// Without a limit of its own a partition of gigabytes would be made. Sanitizers need far more
// addresses than memory.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryIsLimited = false;
#else
constexpr bool kMemoryIsLimited = true;
#endif
constexpr uint64_t kAddressSpace = uint64_t{1} << 30;

constexpr Time kLongestAbort = 10s;
// The daemon may have a version query of 14 s, a busy control device of 15 s, and pushes of 12 s
// each to get over.
constexpr Time kLongestUnrest = 90s;
constexpr Time kLongestEpisode = 150s;  // it may have to get over several of these
// Of fruitless looks at a channel there are a hundred a second at most; a message under way may
// take three of them at once.
constexpr Time kFastestLook = 2ms;
constexpr Time kLongestService = 90s;
constexpr Time kSettle = 1300ms;
constexpr double kRestingCpu = 2;  // per cent of one processor; the clock ticks in steps of 10 ms

// A look that brings the next piece of a message takes no time; two packets at most are a request.
uint32_t looks_in_vain(const Episode& episode) {
    if (episode.kind != Kind::kEmptyReads && episode.kind != Kind::kOddPolls) return 0;
    return episode.count - std::min(episode.count, 2 * episode.requests);
}

bool chooses_no_flash(uint64_t seed) {
    return Dice(seed, "variant", 1).one_in(2);
}

// Misc data that has been pushed before costs no time at the start.
const Scenario& scenario_for(uint64_t seed) {
    if (!chooses_no_flash(seed)) return *find_scenario("update");
    return *find_scenario(Dice(seed, "start", 1).one_in(2) ? "noflash" : "noflash-done");
}

}  // namespace

ChaosTrial::ChaosTrial(const Options& options, SignalWatch& signals)
    : Trial(options, signals, scenario_for(options.seed).start),
      no_flash_(chooses_no_flash(options.seed)),
      scenario_(scenario_for(options.seed)),
      device_({options.seed, behaviour_for(scenario_, firmware_), firmware_, misc_data_,
               kMemoryIsLimited},
              *this),
      course_(device_, no_flash_) {
    limits_.may_dump_core = false;
    if (kMemoryIsLimited) limits_.memory = kAddressSpace;
}

std::string ChaosTrial::name() const {
    return "chaos (seed " + std::to_string(options_.seed) + ")";
}

// Just the episodes that there were.
std::string ChaosTrial::command() const {
    return "chaos --seed " + std::to_string(options_.seed) + " --episodes " +
           std::to_string(std::max(course_.episodes(), 1u));
}

void ChaosTrial::perform() {
    machine_.mount(scenario_.start, device_);
    say("the variant " + std::string(no_flash_ ? "without" : "with") + " flash");
    device_.new_host();
    set_properties(scenario_.start.properties);
    begin_daemon();
    while (goes_on()) play();
    say("from now on all is in order");
    device_.set_noise(0);
    come_to_rest();
    put_in_order();
    check_files();
    tell_tally();
}

bool ChaosTrial::goes_on() const {
    if (options_.episodes) return course_.episodes() < *options_.episodes;
    return now() < std::chrono::seconds(options_.seconds);
}

void ChaosTrial::begin_daemon() {
    if (!no_flash_) set_properties({{"persist.vendor.zt_aon.dfu_update", "0"}});
    start_daemon(limits_);
}

std::string ChaosTrial::wrong() {
    std::string failure = device_.failure();
    if (!failure.empty()) return failure;
    if (device_.context().abort_due && !aborted_) {
        if (!abort_due_since_) abort_due_since_ = now();
        if (now() > *abort_due_since_ + kLongestAbort) {
            return "the daemon has survived a download message of more than 44 bytes";
        }
    }
    std::string unanswered = device_.overdue(now());
    if (!unanswered.empty()) return unanswered;
    if (!machine_.daemon_runs()) return "";
    return watch_.look(now(), machine_.daemon(), machine_.requests(), device_.context().tasks);
}

bool ChaosTrial::may_end(const DaemonEnd& end) {
    if (!device_.context().abort_due || end.signal != SIGABRT) return false;
    aborted_ = true;
    ++aborts_;
    return true;
}

void ChaosTrial::play() {
    if (watch_.rests(now()) && !device_.any_open()) {
        say("the daemon has given up, and another one begins");
        replace_daemon();
    }
    const Episode& episode = course_.begin_next();
    say("episode " + std::to_string(course_.episodes()) + ": " + episode.words);
    watch_.stir(now());
    begin(episode);
    machine_.serve_channels();
    bool same_daemon = true;
    std::optional<Time> open_since;  // in this episode
    wait_for("the end of the episode", kLongestEpisode, [&] {
        if (aborted_) {
            renew_daemon();
            same_daemon = false;
        }
        if (device_.context().abort_due) return false;
        if (!open_since && device_.is_open(episode.channel)) open_since = now();
        return watch_.rests(now()) || (course_.done() && !episode.until_rest);
    });
    const Time least = looks_in_vain(episode) * kFastestLook;
    if (same_daemon && open_since && now() < *open_since + least) {
        failed("the daemon spins: no time has passed with " + episode.words);
    }
    course_.end();
}

// What the episode does to others than the co-processor.
void ChaosTrial::begin(const Episode& episode) {
    if (!episode.property.empty()) set_properties({{episode.property, episode.value}});
    switch (episode.kind) {
        case Kind::kRest:
            return come_to_rest();
        case Kind::kFalseEvent:
            return machine_.uevents().announce(episode.event);
        case Kind::kOddEvents:
            for (uint32_t i = 0; i < episode.count; ++i) {
                Dice dice = device_.context().dice.roll("announcement");
                machine_.uevents().send(odd_announcement(dice));
            }
            return;
        case Kind::kNewDaemon:
            return replace_daemon();
        default:
            return;
    }
}

void ChaosTrial::replace_daemon() {
    device_.context().host_ends = true;
    end_daemon(SIGTERM);
    renew_daemon();
}

// The daemon has ended. Its channels are closed a moment later.
void ChaosTrial::renew_daemon() {
    wait_for("the daemon's channels are closed", 10s, [this] { return !device_.any_open(); });
    aborted_ = false;
    abort_due_since_.reset();
    device_.new_host();
    set_properties(scenario_.start.properties);
    begin_daemon();
}

void ChaosTrial::come_to_rest() {
    watch_.stir(now());
    for (;;) {
        wait_for("the daemon comes to rest", kLongestUnrest,
                 [this] { return aborted_ || (watch_.rests(now()) && device_.settled()); });
        if (!aborted_) break;
        renew_daemon();
        watch_.stir(now());
    }
    const auto usage = usage_of(machine_.daemon());
    if (!usage) failed("the daemon is not there");
    const double cpu = watch_.silent_cpu(now(), *usage);
    char text[32];
    std::snprintf(text, sizeof text, ", %.2f %% CPU", cpu);
    say("at rest: " + usage_text(*usage) + text);
    const std::string why = out_of_bounds(*usage, usual_bounds());
    if (!why.empty()) failed(why);
    if (cpu > kRestingCpu) failed("the resting daemon uses" + std::string(text + 1));
    if (device_.model().status().wakelock_held) failed("the resting daemon holds the wakelock");
}

// A daemon that can still serve must do so after nothing but a restart of the co-processor; else
// another one must.
void ChaosTrial::put_in_order() {
    const std::map<std::string, std::string> nothing_due = {{"vendor.marlo_reset", "0"},
                                                            {"vendor.zt_aon.misc_update", "0"}};
    const bool same = no_flash_ ? device_.version_told() : device_.in_download();
    Behaviour behaviour = behaviour_for(scenario_, firmware_);
    if (same) {
        say("the co-processor restarts, in order");
        set_properties(nothing_due);
        behaviour.boot_mode = kHostMode;
        behaviour.running = true;
        device_.behave(std::move(behaviour), true);
    } else {
        say("another daemon begins, with a co-processor in order");
        device_.context().host_ends = true;
        end_daemon(SIGTERM);
        wait_for("the daemon's channels are closed", 10s, [this] { return !device_.any_open(); });
        device_.behave(std::move(behaviour), false);
        set_properties(scenario_.start.properties);
        set_properties(nothing_due);
        begin_daemon();
    }
    machine_.serve_channels();
    wait_for(no_flash_ ? "misc data and memory are served" : "the download is complete",
             kLongestService, [this] { return served(); });
    pass(kSettle);
    if (device_.model().status().wakelock_held) failed("at the end the wakelock is still held");
}

bool ChaosTrial::served() const {
    if (no_flash_) return phases("misc ends") > 0 && phases("rma ends") > 0;
    const Status& status = device_.model().status();
    return phases("session ends") > 0 && status.boot_mode == kFlashMode && status.running &&
           !status.spi_busy && status.boot_status == 1u;
}

void ChaosTrial::check_files() {
    machine_.end();
    std::string why;
    const Coprocessor& model = device_.model();
    if (!no_flash_ && !model.flash_matches(&why)) failed(why);
    if (no_flash_ && !model.misc_data_matches(misc_data_, &why)) failed(why);
    BackingFiles files = model.backing_files();
    files.insert(device_.backing_files().begin(), device_.backing_files().end());
    why = difference(machine_.root().backing_directory(), files);
    if (!why.empty()) failed(why);
}

void ChaosTrial::tell_tally() {
    say(std::to_string(course_.episodes()) + " episodes, and the daemon ended " +
        std::to_string(aborts_) + " times as it had to. How often what was done:");
    for (const auto& [what, count] : device_.context().tally) {
        say("    " + what + ": " + std::to_string(count));
    }
}

}  // namespace sim
