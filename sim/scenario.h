// SPDX-License-Identifier: Apache-2.0
// The scenarios of marlo-sim as a table (scenario_table.cpp), and the judge of a session.
//
// How the front end uses it:
//     const Scenario* scenario = find_scenario(name);
//     ... makes the root: scenario->start, generated or given firmware ...
//     FirmwareBundle firmware = FirmwareBundle::load(..., scenario->start.platform);
//     Behaviour behaviour = behaviour_for(*scenario, firmware);   // then fragment size, rate
//     Judge judge(*scenario);
//     Coprocessor model(behaviour, firmware, observer);   // observer hands every event to judge
//     each time something has happened or a deadline has passed:
//         while (auto stimulus = judge.take_stimulus(now)) write the property or restart the model;
//         Verdict verdict = judge.verdict(model, now);
// The judge looks at the order of control commands and property changes. A property is written by
// another road than a command: on receiving a request, first read the property changes that have
// arrived and hand them on, then hand the request to the model.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "sim/behaviour.h"
#include "sim/coprocessor.h"
#include "sim/firmware_bundle.h"
#include "sim/observer.h"

namespace sim {

// Beside the version file: the same, another, or the same of the variant without flash.
enum class RunningFirmware { kShipped, kOther, kNoFlash };

// How things are when the daemon starts.
struct Start {
    std::map<std::string, std::string> properties = {};
    PlatformFacts platform = {};
    std::string twm_exit = "0\n";  // /sys/class/pmic-lpm/pmic_twm_exit
    int boot_mode = kFlashMode;
    bool running = false;
    RunningFirmware firmware = RunningFirmware::kShipped;
    std::vector<FaultRequest> faults = {};
    bool flash_image = true;  // flash.bin is there
    RmaLength rma = RmaLength::kShort;
};

struct PropertyChange {
    std::string name;
    std::string value;
};

struct Restart {
    Time length;    // from power-down to power-up
    Time pause{0};  // after the step before, for the daemon to take it in
};

// What the simulator does by itself.
using Stimulus = std::variant<PropertyChange, Restart>;

// One step of the expected course: something that the daemon does, in words, or something that the
// simulator does when the steps before it are done. The words:
//   "get boot mode FLASH", "set boot mode HOST", "SPI busy", "SPI free", "load", "unload",
//   "soft reset", "reset", "query version", "TWM exit", "save dump", "boot status 1":
//       commands; one that the co-processor refuses is followed by " fails"
//   "NAME=VALUE":
//       the property is written
//   "session begins", "session ends", "session cancelled":
//       MG_UPDT_REQ, SESSION_END_RESP accepted; given up by the co-processor
//   "state INIT" and so on, "unknown image":
//       a state query is answered; the host has told that there is no such image; both may also
//       come where no step expects them
//   "state refused":
//       a state query is answered with a failure
//   "misc begins", "misc ends":
//       the first start packet, the finish packet accepted
//   "rma opened", "rma begins", "rma half", "rma ends":
//       the channel of the co-processor's memory, each time; what the co-processor does on it,
//       each once
//   "exit 237", "signal 6":
//       the daemon ends
struct Step {
    std::string words;
    std::optional<Stimulus> stimulus = {};
    bool may_be_early = false;  // another thread does it: it may come before the step in front

    Step(const char* expected) : words(expected) {}
    Step(PropertyChange change);
    Step(Restart restart);
    static Step early(const char* expected);
};

// How things must be at the end. Beyond that the wakelock is never held then.
struct End {
    int boot_mode = kFlashMode;
    bool running = true;
    bool spi_busy = false;
    std::optional<uint32_t> boot_status = {};
    bool flash_written = false;     // the flash holds the firmware, byte for byte
    bool rma_channel_open = false;  // the daemon serves the co-processor's memory
    // For the front end, which knows the files:
    bool misc_data = false;      // the co-processor was given all misc data since it was powered up
    bool backing_files = false;  // they hold the co-processor's memory, and there is nothing else
};

struct Scenario {
    std::string name;
    std::string description;  // one line
    Start start;
    std::vector<Step> steps;        // all that happens, in this order and nothing else
    std::vector<std::string> logs;  // each is part of a line of the daemon's log; in any order
    End end;
    // The session is over when for this long nothing has followed the last step. Usually longer
    // than the period in which the daemon looks at its reset property, so that a command too many
    // shows.
    Time settle = std::chrono::milliseconds(1300);
};

const std::vector<Scenario>& all_scenarios();
const Scenario* find_scenario(std::string_view name);  // nullptr: no such scenario

// The co-processor that the scenario starts with. Throws FirmwareError if the firmware does not
// allow the scenario (no version text that could differ).
Behaviour behaviour_for(const Scenario& scenario, const FirmwareBundle& firmware);

struct Verdict {
    enum Outcome { kRunning, kPass, kFail };
    Outcome outcome;
    std::string why;  // of a failure
};

// One thing that a session is judged by.
struct Check {
    enum Outcome { kMet, kFailed, kNotMet, kNotLookedAt };  // not met: it did not come to that
    std::string words;
    Outcome outcome = kNotLookedAt;
    std::optional<Time> time = {};  // when it was met, where that is a moment
    std::string why = {};           // it failed
};

class Judge : public Observer {
  public:
    explicit Judge(const Scenario& scenario);  // the scenario must outlive the judge

    // Every event of the model, every property change and every kDaemon event of the front end.
    void event(const Event& event) override;

    // What the simulator has to do now. A change of a property that the front end then sees itself
    // may be handed in as an event or not.
    std::optional<Stimulus> take_stimulus(Time now);

    Verdict verdict(const Coprocessor& model, Time now) const;
    // When to ask for a stimulus or the verdict again if nothing happens; none: the daemon has to
    // do something.
    std::optional<Time> next_deadline() const;
    // For the message of a time-out: "load, after soft reset".
    std::string waiting_for() const;

    // All that it looks at: the scenario's steps and lines of the log, and how things are now
    // beside how they must be at the end.
    std::vector<Check> steps() const;
    std::vector<Check> logs() const;
    std::vector<Check> end(const Coprocessor& model) const;

  private:
    void happened(const std::string& words);
    bool expects(size_t step, const std::string& words) const;
    void done(size_t step, Time time);
    std::optional<Time> stimulus_due() const;
    void logged(const std::string& line);
    size_t missing_log() const;  // index of the first; their number: none is missing
    bool complete() const;

    const Scenario& scenario_;
    size_t next_ = 0;         // index of the step that is expected next
    std::set<size_t> early_;  // indexes of steps behind it that have come already
    std::vector<std::optional<Time>> step_times_;  // when each was done
    std::vector<std::optional<Time>> log_times_;
    std::string last_words_ = "the start";
    std::vector<std::string> stimuli_taken_;  // as "NAME=VALUE"
    std::string failure_;
    Time now_{0};  // of the last event
    Time last_progress_{0};
};

}  // namespace sim
