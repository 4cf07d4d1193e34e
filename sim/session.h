// SPDX-License-Identifier: Apache-2.0
// One run of the daemon against the virtual co-processor.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "sim/coprocessor.h"
#include "sim/daemon_process.h"
#include "sim/device_fs.h"
#include "sim/display.h"
#include "sim/options.h"
#include "sim/patience.h"
#include "sim/property_files.h"
#include "sim/root.h"
#include "sim/scenario.h"
#include "sim/signal_watch.h"
#include "sim/transcript.h"
#include "sim/uevent_socket.h"

namespace sim {

// Everything happens on one thread, in run(), which waits for requests from the mounts, for the
// daemon's log, for written properties, for signals and for deadlines, and hands each to the model,
// the judge and the display. Destruction ends the daemon, unmounts, and removes the root.
class Session : private Observer {
  public:
    // Makes the root and the mounts; does not start the daemon yet. Throws RootError,
    // FirmwareError, MountError or another std::runtime_error naming what is wrong.
    Session(const Options& options, const Scenario& scenario, SignalWatch& signals,
            Display& display);

    // Starts the daemon, or says how to. To be called once, before run(). Throws
    // std::runtime_error if the daemon cannot be started.
    void start();

    struct Result {
        Verdict verdict;
        int signal = 0;  // not 0: the user ended the session with it, and the verdict is void
    };
    // To be called once. Throws std::runtime_error if it cannot go on.
    Result run();

    const std::filesystem::path& root() const { return root_.path(); }

  private:
    void event(const Event& event) override;  // of the model and of this class

    void make_coprocessor();
    void prepare_properties();
    void wait();
    std::optional<Time> next_deadline() const;
    void answer_requests();
    void begin_clock();
    void take_log();
    void take_properties();
    void take_daemon_end();
    void advance();
    Verdict verdict();
    std::string wrong_files();
    Result finish(Result result);
    void note_idle_faults() const;
    Time now() const;
    void emit(EventKind kind, nlohmann::json fields);

    const Options& options_;
    Scenario scenario_;
    SignalWatch& signals_;
    Display& display_;
    Root root_;
    PropertyFiles properties_;
    UeventSocket uevents_;
    std::optional<Transcript> transcript_;
    Judge judge_;
    Patience patience_;
    MiscFiles misc_data_;
    std::unique_ptr<Coprocessor> coprocessor_;
    std::unique_ptr<DaemonProcess> daemon_;  // outlives the mounts that it uses
    std::unique_ptr<DeviceFs> files_;
    // Without a value: nobody has come to the mounts yet, and time stands still.
    std::optional<std::chrono::steady_clock::time_point> begin_;
    int requests_ = 0;
};

}  // namespace sim
