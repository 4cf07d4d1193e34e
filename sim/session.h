// SPDX-License-Identifier: Apache-2.0
// One run of the daemon against the virtual co-processor.
#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "sim/coprocessor.h"
#include "sim/display.h"
#include "sim/machine.h"
#include "sim/options.h"
#include "sim/patience.h"
#include "sim/recorder.h"
#include "sim/scenario.h"

namespace sim {

// Runs the machine, and hands what happens there to the model, the judge and the display.
// Destruction ends the daemon, unmounts, and removes the root.
class Session : private Observer, private Machine::Watcher {
  public:
    // Makes the root and the mounts; does not start the daemon yet. Throws RootError,
    // FirmwareError, MountError, RecordError or another std::runtime_error naming what is wrong.
    Session(const Options& options, const Scenario& scenario, SignalWatch& signals,
            Display& display);

    // Starts the daemon, or says how to. To be called once, before run(). Throws
    // std::runtime_error if the daemon cannot be started.
    void start();

    struct Result {
        Verdict verdict;
        int signal = 0;  // not 0: the user ended the session with it, and the verdict is void
    };
    // To be called once. Throws std::runtime_error if it cannot go on, RecordError if what was to
    // be written about it was not.
    Result run();

    const std::filesystem::path& root() const { return machine_.root().path(); }

  private:
    void event(const Event& event) override;  // of the model and of this class
    void daemon_logged(std::string line) override;
    void property_written(PropertyChange change) override;
    void daemon_ended(const DaemonEnd& end) override;

    void make_coprocessor();
    void prepare_properties();
    Time time_to_wait() const;
    void give_stimuli();
    Verdict verdict();
    std::vector<Check> state_checks(const Verdict& verdict) const;
    std::vector<Check> file_checks(bool look);
    Result finish(Result result);
    void show(const Ending& ending);
    void note_idle_faults() const;
    void emit(EventKind kind, nlohmann::json fields);

    const Options& options_;
    Scenario scenario_;
    Display& display_;
    Recorders recorders_;
    Judge judge_;
    Patience patience_;
    MiscFiles misc_data_;
    std::unique_ptr<Coprocessor> coprocessor_;
    Machine machine_;  // goes before the co-processor, whose files it shows
};

}  // namespace sim
