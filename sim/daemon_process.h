// SPDX-License-Identifier: Apache-2.0
// The daemon as a child process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sim/daemon_log.h"

namespace sim {

struct DaemonEnd {
    std::optional<int> exit_status;
    std::optional<int> signal;
};

struct DaemonLimits {
    std::optional<uint64_t> memory = {};  // bytes of address space
    bool may_dump_core = true;
};

// Runs from construction to destruction, or until it ends by itself. It cannot outlive this
// process, however that ends.
class DaemonProcess {
  public:
    // Starts `program` with MARLO_ROOT=`root` added to the environment and its standard output and
    // error on a pipe. Throws std::runtime_error naming the program.
    DaemonProcess(const std::filesystem::path& program, const std::filesystem::path& root,
                  const DaemonLimits& limits);
    // Kills it and waits for its end: destroy the mounts it uses before, so that it is not stuck in
    // a request that nobody answers any more.
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    pid_t pid() const { return pid_; }
    int log_descriptor() const { return log_; }  // -1 when the other end is closed
    // Lines that have arrived, a bounded number of them; does not wait.
    std::vector<std::string> take_log();
    // How it ended, once; empty while it runs and afterwards. Asks without waiting.
    std::optional<DaemonEnd> take_end();
    void signal(int number);

  private:
    pid_t pid_ = -1;
    int log_ = -1;
    bool ended_ = false;
    LineSplitter lines_;
};

}  // namespace sim
