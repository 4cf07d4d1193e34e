// SPDX-License-Identifier: Apache-2.0
// The process of one device, seen from the one that started it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "sim/daemon_log.h"

namespace sim {

// Runs from construction to destruction, or until it ends by itself. When this process is killed it
// is told to end (SIGTERM), and can clean up behind it.
class DeviceProcess {
  public:
    // Forks; there, `body` is all that runs, with the writing end of a pipe. To be called while
    // this process has one thread. Throws std::runtime_error saying what there is too little of.
    explicit DeviceProcess(const std::function<void(int pipe)>& body);
    ~DeviceProcess();
    DeviceProcess(const DeviceProcess&) = delete;
    DeviceProcess& operator=(const DeviceProcess&) = delete;

    int descriptor() const { return pipe_; }  // readable when it has said something, or has ended
    // Lines that have arrived; does not wait.
    std::vector<std::string> take_lines();
    bool has_ended() const { return ended_; }  // known once all of its lines are taken
    std::string how_it_ended() const;          // "was ended by SIGKILL"
    void signal(int number) const;

  private:
    void wait_for_end();

    pid_t pid_ = -1;
    int pipe_ = -1;
    int status_ = 0;  // as waitpid gives it
    bool ended_ = false;
    LineSplitter lines_;
};

}  // namespace sim
