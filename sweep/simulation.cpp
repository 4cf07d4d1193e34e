// SPDX-License-Identifier: Apache-2.0
#include "sweep/simulation.h"

#include <android/log.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>

// The daemon's, under another name.
int daemon_main();

namespace sweep {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
// Longer than any silence of a daemon that is at something: 15 s at a busy control device.
constexpr int64_t kQuiet = 20 * kSecond;
// Whatever goes on for so long will go on for ever.
constexpr int64_t kRestless = 1'800 * kSecond;
// Between two calls that move something on.
constexpr uint64_t kSpins = 5'000;
// For the restart that shows whether the daemon still serves.
constexpr int64_t kRestartLength = 300'000'000;

Simulation* g_simulation = nullptr;

// What tells log lines apart whatever numbers are in them.
std::string without_numbers(const char* text) {
    std::string result;
    for (const char* at = text; *at != '\0'; ++at) {
        const bool is_digit = isdigit(static_cast<unsigned char>(*at)) != 0;
        if (!is_digit) {
            result += *at;
        } else if (result.empty() || result.back() != '#') {
            result += '#';
        }
    }
    return result;
}

// Not all failures are logged as errors: the updater's reports are debug lines.
bool complains(std::string_view text) {
    constexpr std::string_view kWords[] = {
        "fail",  "Fail",         "FAIL",  "rror",    "not ",    "Cannot",
        "nable", "MIS-",         "busy",  "invalid", "INVALID", "no memory",
        "only ", "unregistered", "retry", "POLLHUP", "EAGAIN"};
    // So ends any transport that was disconnected before it is destroyed.
    if (text.find("close on _s_chnl_fd = -1 ") != text.npos) return false;
    return std::any_of(std::begin(kWords), std::end(kWords),
                       [text](auto word) { return text.find(word) != text.npos; });
}

// Files that nobody asked for are another matter.
bool holds(const std::map<std::string, Bytes>& files, const sim::BackingFiles& expected) {
    return std::all_of(expected.begin(), expected.end(), [&files](const auto& entry) {
        const auto file = files.find(entry.first);
        return file != files.end() && file->second == entry.second;
    });
}

void on_abort(int) {
    simulation().end("aborted");
}

}  // namespace

Simulation& simulation() {
    return *g_simulation;
}

void set_simulation(Simulation* simulation) {
    g_simulation = simulation;
}

Simulation::Simulation(const LifeSetup& setup)
    : setup_(setup),
      device_(*setup.device),
      scheduler_({[this] { return device_.next_event(); },
                  [this](int64_t now) { clock_moves(now); }, [this] { end("stuck"); }}),
      occasions_(setup.plan) {
    if (setup.restarts > 0) device_.stop_recording();
    device_.replay(setup.before);
    if (!setup.before.empty()) {
        device_.daemon_dies();
        scheduler_.set_time(device_.now());
    }
    if (setup.reboots) device_.reboot();
    scheduler_.set_eager(setup.eager);
    device_.set_packet_hook([this](const std::string& path, const Bytes&) {
        Occasion kind = Occasion::kMiscPacket;
        if (path.ends_with("_dfu")) kind = Occasion::kDownloadPacket;
        if (path.ends_with("_rma")) kind = Occasion::kMemoryPacket;
        const auto fault = occasion(kind, path);
        if (!fault) return std::pair(Disturbance::kNone, 0u);
        return std::pair(fault->disturbance, static_cast<uint32_t>(fault->value));
    });
    if (!setup.first) return;
    for (const sim::Step& step : setup.device->scenario->steps) {
        if (step.stimulus) events_to_come_.push_back(*step.stimulus);
    }
}

void Simulation::live(std::function<void(const Life&)> finish) {
    finish_ = std::move(finish);
    take_failures();
    life_.failures.clear();  // of earlier lives
    quiet_since_ = part_since_ = born_at_ = scheduler_.now();
    progress_before_ = device_.progress();
    signal(SIGABRT, on_abort);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_default_tag("marlo_daemon");
    __android_log_set_logger([](const __android_logger_data* line, const char* text) {
        simulation().note_log(line->priority, text);
    });
    // An abort's reason is in the log already.
    __android_log_set_aborter([](const char*) { abort(); });
    scheduler_.run([this] { end("exit " + std::to_string(daemon_main())); });
    abort();
}

std::optional<Fault> Simulation::occasion(Occasion kind, const std::string& detail) {
    const auto fault = occasions_.strikes(kind, detail);
    if (!fault) return {};
    using namespace std::string_literals;
    constexpr int64_t kMillisecond = 1'000'000;
    const auto nanoseconds =
        fault->value < 0 ? std::nullopt : std::optional(fault->value * kMillisecond);
    switch (fault->effect) {
        case Effect::kHangsUp:
            device_.hang_up(nanoseconds);
            return {};
        case Effect::kRestarts:
            device_.restart(nanoseconds);
            return {};
        case Effect::kLoses:
            device_.lose_next_write();
            return {};
        case Effect::kAnnounces:
            if (fault->value == 0) {
                device_.uevent("change@/devices/polo_com_dev\0MARLO_EVENT=1\0"s);
            } else if (fault->value == 1) {
                device_.uevent(std::string(2'000, '\xff') + "marlo_com_dev\0MARLO_EVENT="s);
            } else {
                device_.uevent(device_.next_uevent());
            }
            return {};
        case Effect::kKills:
            end("killed");
        default:
            return fault;
    }
}

void Simulation::count_call() {
    if (device_.progress() != last_progress_) {
        last_progress_ = device_.progress();
        calls_without_progress_ = 0;
        quiet_since_ = scheduler_.now();
    }
    if (++calls_without_progress_ > kSpins) end("spins");
}

void Simulation::note_log(int priority, const char* text) {
    ++life_.log_lines;
    if (complains(text)) ++life_.complaints[without_numbers(text)];
    if (setup_.shows_log) {
        fprintf(stderr, "%8.3f %d %s\n", static_cast<double>(scheduler_.now()) / 1e9, priority,
                text);
    }
}

void Simulation::clock_moves(int64_t now) {
    device_.advance(now);
    calls_without_progress_ = 0;
    if (device_.progress() != last_progress_) {
        last_progress_ = device_.progress();
        quiet_since_ = now;
    }
    if (now - part_since_ > kRestless) end("restless");
    if (now - quiet_since_ >= kQuiet) quiet();
}

void Simulation::quiet() {
    quiet_since_ = scheduler_.now();
    if (!events_to_come_.empty()) return next_event_of_the_scenario();
    if (restarts_once_more()) return;
    const bool waits_for_fault = setup_.plan && !occasions_.struck_at();
    if (waits_for_fault && !std::exchange(has_waited_, true)) return restart();
    check_claims();
    take_failures();
    life_.states.push_back(state());
    const bool reached = std::find(setup_.goals.begin(), setup_.goals.end(), life_.states.back()) !=
                         setup_.goals.end();
    if (life_.states.size() == 2 || reached) end("quiet");
    restart();
}

void Simulation::restart() {
    part_since_ = scheduler_.now();
    device_.restart(kRestartLength);
}

bool Simulation::restarts_once_more() {
    if (setup_.restarts == 0) return false;
    if (restarts_ == setup_.restarts / 10 || restarts_ == setup_.restarts) {
        life_.usage.push_back(usage());
    }
    if (restarts_ == setup_.restarts) end("quiet");
    ++restarts_;
    restart();
    return true;
}

Usage Simulation::usage() const {
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    const auto heap = mallinfo2();
    return {restarts_, heap.uordblks + heap.hblkhd,
            pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)), scheduler_.living_threads(),
            device_.open_descriptors()};
}

void Simulation::next_event_of_the_scenario() {
    const sim::Stimulus event = events_to_come_.front();
    events_to_come_.pop_front();
    if (const auto* change = std::get_if<sim::PropertyChange>(&event)) {
        device_.set_property(change->name, change->value);
    } else {
        device_.restart(std::get<sim::Restart>(event).length.count());
    }
}

void Simulation::take_failures() {
    const auto& all = device_.coprocessor().failures();
    auto& into = life_.states.empty() ? life_.failures : life_.late_failures;
    into.insert(into.end(), all.begin() + static_cast<ptrdiff_t>(failures_taken_), all.end());
    failures_taken_ = all.size();
}

State Simulation::state() {
    const sim::Coprocessor& model = device_.coprocessor();
    const sim::Status& status = model.status();
    const auto files = device_.files().in_directory("/data/vendor/aon");
    const auto right = [](bool is_right) { return is_right ? "right" : "other"; };
    State state = {
        {"mode", sim::boot_mode_name(status.boot_mode)},
        {"co-processor", status.running ? "running" : "off"},
        {"SPI bus", status.spi_busy ? "busy" : "free"},
        {"boot status", status.boot_status ? std::to_string(*status.boot_status) : "none"},
        {"flash", right(model.flash_matches(nullptr))},
        {"misc data", right(model.misc_data_matches(device_.misc_data(), nullptr))},
        {"memory", std::to_string(status.memory_done)},
        {"backing files", right(holds(files, model.backing_files()))},
        {"wakelock", status.wakelock_held ? "held" : "released"},
        {"threads", std::to_string(scheduler_.living_threads())},
        {"descriptors", std::to_string(device_.open_descriptors())}};
    for (const char* name : {kUpdateProperty, "vendor.marlo.boot_complete",
                             "vendor.zt_aon.misc_update", "vendor.marlo_reset"}) {
        state[name] = device_.property(name);
    }
    return state;
}

// Whatever has gone wrong: an update that counts as done is in the flash, and memory whose writing
// was acknowledged is in the files.
void Simulation::check_claims() {
    const sim::Coprocessor& model = device_.coprocessor();
    const auto& before = setup_.device->scenario->start.properties;
    std::string why;
    if (before.count(kUpdateProperty) == 0 && device_.property(kUpdateProperty) == "1" &&
        !model.flash_matches(&why)) {
        life_.lies.push_back(kUntrueUpdate + why);
    }
    const auto files = device_.files().in_directory("/data/vendor/aon");
    const sim::BackingFiles with = model.backing_files(true);
    const std::set<std::string> acknowledged = model.acknowledged_files();
    for (const auto& [name, memory] : model.backing_files()) {
        const auto file = files.find(name);
        if (file != files.end()) {
            if (file->second == memory || file->second == with.at(name)) continue;
            life_.lies.push_back("partition file " + name + " is not what was acknowledged");
        } else if (acknowledged.count(name) != 0) {
            const bool is_untouched =
                std::all_of(memory.begin(), memory.end(), [](uint8_t byte) { return byte == 0; });
            life_.lies.push_back((is_untouched ? kNoFile : "a written partition file is gone: ") +
                                 name);
        }
    }
    for (const auto& [name, bytes] : files) {
        if (with.count(name) == 0 && name != "unfinished") {
            life_.lies.push_back(kStrayFile + name);
        }
    }
}

void Simulation::end(const std::string& how) {
    life_.end = how;
    if (how != "quiet") check_claims();
    take_failures();
    if (life_.states.empty()) life_.states.push_back(state());
    for (const auto& [kind, count] : occasions_.counts()) {
        life_.occasions[occasion_name(kind)] = count;
    }
    life_.struck_at = occasions_.struck_at();
    life_.may_abort = device_.may_abort();
    life_.must_abort = device_.must_abort();
    life_.progress = device_.progress() - progress_before_;
    life_.seconds = (scheduler_.now() - born_at_) / kSecond;
    // Nobody goes on from where all is well.
    const bool is_done = how == "quiet" && is_as_good_as(life_.states.back(), setup_.goals);
    if (!is_done) life_.trace = device_.trace();
    finish_(life_);
    abort();
}

}  // namespace sweep
