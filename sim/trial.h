// SPDX-License-Identifier: Apache-2.0
// A run of the daemon that is no scenario: a procedure that makes things happen, waits for what the
// daemon must do, and fails where that does not come.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "sim/machine.h"
#include "sim/recorder.h"
#include "sim/scenario.h"

namespace sim {

struct TrialResult {
    Verdict verdict;
    int signal = 0;  // not 0: the user ended the trial with it, and the verdict is void
};

class Trial : protected Observer, private Machine::Watcher {
  public:
    // Prints its progress on standard output, unless the options say not to, and after a failure
    // the last lines of the daemon's log. To be called once. Throws what keeps the daemon from
    // running: that is no failure of it; and RecordError.
    TrialResult run();
    virtual std::string name() const = 0;     // for the verdict
    virtual std::string command() const = 0;  // that does all of it once more
    const std::filesystem::path& root() const { return machine_.root().path(); }

  protected:
    // Makes the root with the files that the device ships. Both must outlive the trial. Throws as
    // Machine does, FirmwareError and RecordError.
    Trial(const Options& options, SignalWatch& signals, const Start& start);

    // The procedure. Whatever goes wrong ends it by failed().
    virtual void perform() = 0;
    // Looked at after each turn; not empty: it has gone wrong.
    virtual std::string wrong() { return ""; }
    // Events of the model; those that kernel announces have been announced.
    virtual void happened(const Event&) {}
    virtual void logged(const std::string& /*line*/) {}  // by the daemon

    [[noreturn]] static void failed(const std::string& why);
    // Has the machine go on until it is done; after `limit` it has failed, for want of `what`.
    void wait_for(const std::string& what, Time limit, const std::function<bool()>& done);
    void pass(Time time);

    void set_properties(const std::map<std::string, std::string>& properties);
    void start_daemon(const DaemonLimits& limits = {});
    // Until it has ended; `number`: the signal that ends it.
    void end_daemon(int number);
    // The daemon has ended; false: that is a failure.
    virtual bool may_end(const DaemonEnd&) { return false; }

    void say(const std::string& text) const;
    Time now() const { return machine_.now(); }
    // How often the model has told of this phase, and the value of a property written last.
    uint64_t phases(const std::string& phase) const;
    std::string property(const std::string& name) const;

    void event(const Event& event) override;

    const Options& options_;
    Machine machine_;
    const FirmwareBundle firmware_;
    const MiscFiles misc_data_;

  private:
    void daemon_logged(std::string line) override;
    void property_written(PropertyChange change) override;
    void daemon_ended(const DaemonEnd& end) override;
    void turn(Time limit);

    struct Interrupted {
        int signal;
    };
    class Failure : public std::runtime_error {
      public:
        using std::runtime_error::runtime_error;
    };

    Recorders recorders_;
    std::map<std::string, uint64_t> phases_;
    std::map<std::string, std::string> properties_;
    std::deque<std::string> log_;  // its last lines
    bool has_run_ = false;         // the daemon
    std::string end_;              // of it, when it should not have ended
    int ending_ = 0;               // the signal that is to end it
};

}  // namespace sim
