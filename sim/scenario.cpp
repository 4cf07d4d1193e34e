// SPDX-License-Identifier: Apache-2.0
#include "sim/scenario.h"

#include <algorithm>

#include "sim/event.h"

namespace sim {

namespace {

constexpr size_t kLongestVersion = 99;
constexpr std::string_view kNoFlash = "-NOFLASH_PSRAM";

// A text that holds the shipped one as a running version does, or one that does not.
std::string running_version(const std::string& shipped, RunningFirmware firmware) {
    switch (firmware) {
        case RunningFirmware::kShipped:
            return shipped + "-RUNNING";
        case RunningFirmware::kNoFlash:
            return shipped.substr(0, kLongestVersion - kNoFlash.size()) + std::string(kNoFlash);
        case RunningFirmware::kOther:
            break;
    }
    // Leaves out the first character: cannot hold a text that is one character longer.
    return shipped.empty() ? "" : shipped.substr(1);
}

// The words of a control command, boot mode, status and failure included.
std::string command_words(const nlohmann::json& fields) {
    std::string words = fields.at("command");
    if (fields.contains("mode")) words += " " + fields.at("mode").get<std::string>();
    if (words == "boot status") words += " " + std::to_string(fields.at("value").get<uint32_t>());
    if (fields.at("result").get<int>() < 0) words += " fails";
    return words;
}

std::string property_words(const nlohmann::json& fields) {
    return fields.at("name").get<std::string>() + "=" + fields.at("value").get<std::string>();
}

// Empty: no step of its own.
std::string phase_words(const nlohmann::json& fields) {
    std::string phase = fields.at("phase");
    if (phase == "state") return phase + " " + fields.at("state").get<std::string>();
    if (phase == "misc resource") return "";  // how many there are is up to the files
    for (const char* step : {"session ", "unknown image", "misc ", "rma "}) {
        if (phase.starts_with(step)) return phase;
    }
    return "";
}

// What a disturbance makes the daemon do: a step where the scenario is about it, but with --fault
// it may come in any scenario.
bool by_the_way(const std::string& words) {
    return words == "unknown image" || (words.starts_with("state ") && words != "state refused");
}

std::string running_words(bool running) {
    return running ? "running" : "offline";
}

std::string busy_words(bool busy) {
    return busy ? "busy" : "free";
}

std::string status_words(std::optional<uint32_t> status) {
    return status ? std::to_string(*status) : "none";
}

// `why`: empty if it is so.
Check fact(const std::string& words, const std::string& why) {
    return {words, why.empty() ? Check::kMet : Check::kFailed, {}, why};
}

Check compared(const std::string& what, const std::string& expected, const std::string& got) {
    const std::string why = "at the end " + what + " expected " + expected + ", got " + got;
    return fact(what + " " + expected, expected == got ? "" : why);
}

Check moment(const std::string& words, std::optional<Time> time) {
    return {words, time ? Check::kMet : Check::kNotMet, time, ""};
}

}  // namespace

Behaviour behaviour_for(const Scenario& scenario, const FirmwareBundle& firmware) {
    const ShippedVersions& shipped = firmware.versions;
    const RunningFirmware which = scenario.start.firmware;
    Behaviour behaviour;
    behaviour.boot_mode = scenario.start.boot_mode;
    behaviour.running = scenario.start.running;
    behaviour.faults = scenario.start.faults;
    behaviour.rma = scenario.start.rma;
    behaviour.versions.apps = running_version(shipped.apps, which);
    behaviour.versions.dsp = running_version(shipped.dsp, RunningFirmware::kShipped);
    behaviour.versions.bt = running_version(shipped.bt, RunningFirmware::kShipped);
    if (which == RunningFirmware::kOther && shipped.apps.empty()) {
        throw FirmwareError("the version file names no apps_cochip: scenario " + scenario.name +
                            " needs one that differs from the running version");
    }
    for (const std::string* text : {&shipped.apps, &shipped.dsp, &shipped.bt}) {
        if (text->size() > kLongestVersion) {
            throw FirmwareError("the version file's text \"" + text->substr(0, 20) +
                                "...\" is longer than the co-processor can report (99 bytes)");
        }
    }
    return behaviour;
}

Step::Step(PropertyChange change)
    : words(change.name + "=" + change.value), stimulus(std::move(change)) {}

Step::Step(Restart restart) : words("restart"), stimulus(restart) {}

Step Step::early(const char* expected) {
    Step step(expected);
    step.may_be_early = true;
    return step;
}

Judge::Judge(const Scenario& scenario)
    : scenario_(scenario), step_times_(scenario.steps.size()), log_times_(scenario.logs.size()) {}

void Judge::event(const Event& event) {
    const nlohmann::json& fields = event.fields;
    now_ = event.time;
    switch (event.kind) {
        case EventKind::kIoctl:
            return happened(command_words(fields));
        case EventKind::kProperty: {
            const std::string words = property_words(fields);
            const auto& taken = stimuli_taken_;
            if (std::find(taken.begin(), taken.end(), words) == taken.end()) happened(words);
            return;
        }
        case EventKind::kPhase: {
            const std::string words = phase_words(fields);
            if (!words.empty()) happened(words);
            return;
        }
        case EventKind::kDaemon:
            if (fields.contains("line")) logged(fields.at("line"));
            if (fields.contains("exit")) happened("exit " + fields.at("exit").dump());
            if (fields.contains("signal")) happened("signal " + fields.at("signal").dump());
            return;
        case EventKind::kChannel: {
            // When the others are opened and closed follows from what is said on them.
            const std::string words = fields.at("channel").get<std::string>() + " " +
                                      fields.at("change").get<std::string>();
            if (words == "rma opened") happened(words);
            return;
        }
        case EventKind::kPacket:
        case EventKind::kState:
        case EventKind::kSysfs:
        case EventKind::kCheck:
        case EventKind::kFault:
        case EventKind::kUevent:
            return;
    }
}

void Judge::happened(const std::string& words) {
    last_progress_ = now_;
    if (!failure_.empty()) return;
    for (size_t step = next_; step < scenario_.steps.size(); ++step) {
        if (step > next_ && !scenario_.steps[step].may_be_early) break;
        if (expects(step, words)) return done(step, now_);
    }
    if (by_the_way(words)) return;
    failure_ = next_ == scenario_.steps.size()
                   ? "expected nothing after " + last_words_ + ", got " + words
                   : "expected " + waiting_for() + "; got " + words;
}

bool Judge::expects(size_t step, const std::string& words) const {
    const Step& expected = scenario_.steps[step];
    return !expected.stimulus && expected.words == words && early_.count(step) == 0;
}

void Judge::done(size_t step, Time time) {
    step_times_[step] = time;
    last_words_ = scenario_.steps[step].words;
    early_.insert(step);
    while (early_.erase(next_)) ++next_;
}

void Judge::logged(const std::string& line) {
    for (size_t log = 0; log < log_times_.size(); ++log) {
        if (log_times_[log] || line.find(scenario_.logs[log]) == line.npos) continue;
        log_times_[log] = last_progress_ = now_;
        return;
    }
}

size_t Judge::missing_log() const {
    const auto missing = std::find(log_times_.begin(), log_times_.end(), std::nullopt);
    return static_cast<size_t>(missing - log_times_.begin());
}

bool Judge::complete() const {
    return next_ == scenario_.steps.size() && missing_log() == log_times_.size();
}

// None: the next step is none of the simulator's.
std::optional<Time> Judge::stimulus_due() const {
    if (next_ == scenario_.steps.size() || !scenario_.steps[next_].stimulus) return {};
    const auto* restart = std::get_if<Restart>(&*scenario_.steps[next_].stimulus);
    return last_progress_ + (restart ? restart->pause : Time{0});
}

std::optional<Stimulus> Judge::take_stimulus(Time now) {
    const auto due = stimulus_due();
    if (!due || now < *due) return {};
    const Step& step = scenario_.steps[next_];
    stimuli_taken_.push_back(step.words);
    done(next_, now);
    return step.stimulus;
}

std::string Judge::waiting_for() const {
    if (next_ < scenario_.steps.size()) {
        const Step& step = scenario_.steps[next_];
        return (step.stimulus ? "nothing before " : "") + step.words + " after " + last_words_;
    }
    const size_t missing = missing_log();
    if (missing < scenario_.logs.size()) return "the log line \"" + scenario_.logs[missing] + "\"";
    return "nothing after " + last_words_;
}

Verdict Judge::verdict(const Coprocessor& model, Time now) const {
    if (!model.failures().empty()) return {Verdict::kFail, model.failures().front()};
    if (!failure_.empty()) return {Verdict::kFail, failure_};
    if (!complete() || now < last_progress_ + scenario_.settle) return {Verdict::kRunning, ""};
    for (const Check& check : end(model)) {
        if (check.outcome != Check::kMet) return {Verdict::kFail, check.why};
    }
    return {Verdict::kPass, ""};
}

std::optional<Time> Judge::next_deadline() const {
    if (!failure_.empty()) return {};
    if (!complete()) return stimulus_due();
    return last_progress_ + scenario_.settle;
}

std::vector<Check> Judge::steps() const {
    std::vector<Check> checks;
    for (size_t step = 0; step < scenario_.steps.size(); ++step) {
        checks.push_back(moment(scenario_.steps[step].words, step_times_[step]));
    }
    // What came instead of the step that it waits for, or after the last one.
    if (failure_.empty()) return checks;
    if (next_ == checks.size()) checks.push_back({"nothing more"});
    checks[next_].outcome = Check::kFailed;
    checks[next_].why = failure_;
    return checks;
}

std::vector<Check> Judge::logs() const {
    std::vector<Check> checks;
    for (size_t log = 0; log < scenario_.logs.size(); ++log) {
        checks.push_back(moment(scenario_.logs[log], log_times_[log]));
    }
    return checks;
}

std::vector<Check> Judge::end(const Coprocessor& model) const {
    const Status& status = model.status();
    const End& end = scenario_.end;
    std::vector<Check> checks = {
        compared("boot mode", boot_mode_name(end.boot_mode), boot_mode_name(status.boot_mode)),
        compared("co-processor", running_words(end.running), running_words(status.running)),
        compared("SPI bus", busy_words(end.spi_busy), busy_words(status.spi_busy)),
        compared("boot status", status_words(end.boot_status), status_words(status.boot_status)),
    };
    if (end.rma_channel_open) {
        const bool open = model.is_open(Channel::kRma) && !model.hung_up(Channel::kRma);
        checks.push_back(compared("channel rma", "open", open ? "open" : "closed or hung up"));
    }
    checks.push_back(fact("the wakelock is not held",
                          status.wakelock_held ? "at the end the wakelock is still held" : ""));
    if (end.flash_written) {
        std::string why;
        model.flash_matches(&why);
        checks.push_back(fact("the flash holds the images, byte for byte", why));
    }
    return checks;
}

}  // namespace sim
