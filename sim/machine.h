// SPDX-License-Identifier: Apache-2.0
// The machine that the daemon runs on: a root directory with properties and device files, the
// kernel's announcements, the daemon's process, and the time since it began.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "sim/capture/capture_file.h"
#include "sim/daemon_process.h"
#include "sim/device_fs.h"
#include "sim/options.h"
#include "sim/property_files.h"
#include "sim/root.h"
#include "sim/signal_watch.h"
#include "sim/uevent_socket.h"

namespace sim {

// Everything happens on one thread, in turn(). Destruction ends the daemon, unmounts, and removes
// the root.
class Machine {
  public:
    // Told from inside turn() what happens, in the order in which it does.
    class Watcher {
      public:
        virtual ~Watcher() = default;
        virtual void daemon_logged(std::string line) = 0;
        virtual void property_written(PropertyChange change) = 0;
        virtual void daemon_ended(const DaemonEnd& end) = 0;
    };

    // Makes the root; nothing is mounted yet. All three must outlive the machine. Throws RootError
    // or another std::runtime_error naming what is wrong.
    Machine(const Options& options, SignalWatch& signals, Watcher& watcher);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    const Root& root() const { return root_; }
    PropertyFiles& properties() { return properties_; }
    UeventSocket& uevents() { return uevents_; }

    // From now on all that is done to the devices to be mounted is written, if the options ask for
    // it. `what`: the name of what is run. Throws RecordError.
    void capture(const std::string& what, const FirmwareBundle& firmware);
    // Throws RecordError if something could not be written.
    void end_capture();

    // Shows the device files of `device`, which must outlive them. Throws MountError.
    void mount(const Start& start, Device& device);
    // Takes them away again: no daemon runs.
    void unmount() { files_.reset(); }

    // Starts the daemon, or another one when the one before has ended. The clock begins with the
    // first. Throws std::runtime_error if it cannot be started.
    void start_daemon(const DaemonLimits& limits = {});
    bool daemon_runs() const { return daemon_runs_; }
    pid_t daemon() const { return daemon_->pid(); }  // of the one that was started last
    // Its end is told in a later turn.
    void signal_daemon(int number) { daemon_->signal(number); }
    // Ends it if it runs, and takes its device files away: the root's files then stay as they are.
    // The watcher is told no more.
    void end();

    // Waits for something to happen, `limit` at most, and deals with all that has happened: signals
    // first, and if one of them is to end this process nothing else.
    SignalWatch::Arrived turn(Time limit);
    // Passes on what the device has to say on its channels. To be called when it was made to say
    // something outside a turn.
    void serve_channels() { files_->serve_channels(); }

    bool clock_runs() const { return begin_.has_value(); }  // from the daemon's first sign on
    Time now() const;                                       // 0 before
    uint64_t requests() const { return requests_; }         // to the device files, so far

  private:
    void wait(Time limit);
    void begin_clock();
    void take_log();
    void take_properties();
    void take_daemon_end();
    void answer_requests();

    const Options& options_;
    SignalWatch& signals_;
    Watcher& watcher_;
    Root root_;
    PropertyFiles properties_;
    UeventSocket uevents_;
    std::optional<CaptureFile> capture_;
    Device* device_ = nullptr;
    std::unique_ptr<DaemonProcess> daemon_;  // outlives the mounts that it uses
    std::unique_ptr<DeviceFs> files_;
    bool daemon_runs_ = false;
    // Without a value: nobody has come to the mounts yet, and time stands still.
    std::optional<std::chrono::steady_clock::time_point> begin_;
    uint64_t requests_ = 0;
};

}  // namespace sim
