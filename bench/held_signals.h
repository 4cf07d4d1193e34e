// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>

namespace bench {

// While one of these exists, the signals that end a program (Ctrl-C's among them) wait: whoever has
// something to clean up has done so before they are let through and end the process. To be made on
// the only thread, before what is to be cleaned up. Whoever takes long looks for them by itself
// (ChildProcess::finish, throw_if_pending).
class HeldSignals {
  public:
    HeldSignals();
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    // SIGHUP, SIGINT, SIGTERM.
    static sigset_t signals();
    // Throws std::runtime_error where one of them is waiting.
    static void throw_if_pending();

  private:
    sigset_t before_{};
};

}  // namespace bench
