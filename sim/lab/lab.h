// SPDX-License-Identifier: Apache-2.0
// Many virtual devices at once: the same scenario with the same options, each with a root, mounts
// and a daemon of its own, in a process of its own.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "sim/lab/device_process.h"
#include "sim/lab/lab_display.h"
#include "sim/options.h"
#include "sim/scenario.h"
#include "sim/signal_watch.h"

namespace sim {

// More wait until others have ended: a system as it is installed lets one user have 128 watches of
// directories, of which each device takes one.
inline constexpr size_t kMostAtOnce = 100;

// To be used while this process has one thread. Destruction ends the devices that run.
class Lab {
  public:
    // All four must outlive the lab.
    Lab(const Options& options, const Scenario& scenario, SignalWatch& signals,
        LabDisplay& display);
    ~Lab();
    Lab(const Lab&) = delete;
    Lab& operator=(const Lab&) = delete;

    struct Result {
        Verdict verdict;
        int signal = 0;  // not 0: the user ended it, and the verdict is void
    };
    // To be called once. Returns when nothing of the devices is left. Throws std::runtime_error
    // naming what keeps one from running: that is no failure of the daemon.
    Result run();

  private:
    using Clock = std::chrono::steady_clock;

    void start_devices();
    void start(DeviceState& device);
    void wait() const;
    void take_messages();
    void take_end(DeviceState& device, const DeviceProcess& process);
    void end_devices(int signal);
    void give_up(const DeviceState& device, const std::string& why);
    void clean_up();
    void print_notes() const;
    Result result() const;
    std::optional<std::filesystem::path> root_of(const DeviceState& device) const;
    Time now() const { return Clock::now() - begin_; }

    const Options& options_;
    const Scenario& scenario_;
    SignalWatch& signals_;
    LabDisplay& display_;
    const Clock::time_point begin_ = Clock::now();
    bool root_is_new_ = false;  // the directory of all of them
    bool cleaned_up_ = true;    // each device has, so far
    DeviceStates devices_;
    size_t next_ = 0;                                           // to be started
    std::map<size_t, std::unique_ptr<DeviceProcess>> running_;  // by index of the device
    std::string cannot_run_;                                    // why
    int signal_ = 0;                                            // that is to end all of it
    std::optional<Time> patience_;  // until when they may take to end, once they are told to
};

}  // namespace sim
