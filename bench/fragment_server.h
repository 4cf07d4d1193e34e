// SPDX-License-Identifier: Apache-2.0
// Who answers: the daemon's own transport and updater, or the least that can be done.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <span>
#include <thread>
#include <vector>

#include "bench/coprocessor.h"
#include "fwupdater/marlo_fw_updater.h"

namespace bench {

// Serves on a thread of its own, from construction to destruction.
class FragmentServer {
  public:
    virtual ~FragmentServer() = default;
    // Of the serving thread; known once a fragment has been served.
    virtual clockid_t cpu_clock() const = 0;
};

// poll, read the request, copy the fragment behind its head, CRC by libdeflate, one write. No log,
// no wakelock, no look-up, no check: what the system calls and the bytes cost by themselves.
class BareLoop : public FragmentServer {
  public:
    // Owns neither; `image` and the descriptor must outlive it.
    BareLoop(int channel, std::span<const uint8_t> image);
    ~BareLoop() override;
    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;

    clockid_t cpu_clock() const override;

  private:
    void serve();
    bool serve_one();

    int channel_;
    int stop_[2];
    std::span<const uint8_t> image_;
    std::vector<uint8_t> answer_;
    mutable std::thread thread_;
};

// The real updater and the real transport, on the images of the firmware directory
// (bench/firmware.h). What is reported is dropped, as the daemon's callback drops the report of a
// fragment.
class DaemonServer : public FragmentServer {
  public:
    // os::open of kDfuChannel gives the channel. Throws std::runtime_error where it does not open.
    DaemonServer();
    ~DaemonServer() override;
    DaemonServer(const DaemonServer&) = delete;
    DaemonServer& operator=(const DaemonServer&) = delete;

    clockid_t cpu_clock() const override { return reports_.reader_clock; }

  private:
    struct Reports : marlo_fw_updater::Callback {
        void handleDFUResponse(std::string message, Status status) override;
        void handleSHMResponse(std::string, Status) override {}
        void onDFUStateRecived(DFUState) override {}
        std::atomic<bool> has_failed = false;
        std::atomic<clockid_t> reader_clock = 0;
    };

    Reports reports_;
    std::unique_ptr<marlo_fw_updater> updater_;
};

}  // namespace bench
