// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

class MarloDaemon;

// Listens for the power-downs and power-ups of the co-processor, which its kernel driver announces
// as uevents, keeps "vendor.marlo.boot_complete" in step and tells the daemon.
//
// A uevent is a sequence of NUL-terminated texts: a headline and its environment. One of the
// co-processor names "marlo_com_dev" and carries "MARLO_EVENT=" with one of these values:
enum MarloEvent : int32_t {
    MARLO_POWER_DOWN = 1,
    MARLO_POWER_UP = 4,
};

class SSRHandler {
  public:
    // Starts the listener, a detached thread: this object and the daemon must live as long as it.
    // Without memory for a thread an error is logged and nobody listens. `daemon` may be null.
    explicit SSRHandler(MarloDaemon* daemon);
    SSRHandler(const SSRHandler&) = delete;
    SSRHandler& operator=(const SSRHandler&) = delete;

    // The thread's body: returns once the socket cannot be opened or fails.
    void marloSSREventListener();

    // The value of the last event, acted upon or not; 0 before the first. Any thread.
    int32_t last_event() const { return last_event_; }

  private:
    void handle_message(std::span<char> buffer, size_t length);
    void handle_event(int32_t event);

    MarloDaemon* daemon_;
    std::atomic<int32_t> last_event_ = 0;
};
