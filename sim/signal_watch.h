// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sim {

// The signals that the session answers in its own time. From construction on they no longer end
// the process; to be made before anything that has to be cleaned up.
class SignalWatch {
  public:
    // Throws std::system_error.
    SignalWatch();
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    int descriptor() const { return descriptor_; }  // readable when one has arrived

    struct Arrived {
        int ending = 0;  // SIGINT, SIGTERM or SIGHUP: the user wants this process to end
        bool child_ended = false;
        bool terminal_resized = false;
    };
    Arrived take();

  private:
    int descriptor_;
};

}  // namespace sim
