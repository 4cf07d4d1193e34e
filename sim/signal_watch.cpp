// SPDX-License-Identifier: Apache-2.0
#include "sim/signal_watch.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace sim {

SignalWatch::SignalWatch() {
    sigset_t watched;
    sigemptyset(&watched);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGWINCH}) {
        sigaddset(&watched, number);
    }
    sigprocmask(SIG_BLOCK, &watched, nullptr);
    signal(SIGPIPE, SIG_IGN);  // whoever read our output is gone; what we made must still go
    descriptor_ = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

SignalWatch::~SignalWatch() {
    close(descriptor_);
}

SignalWatch::Arrived SignalWatch::take() {
    Arrived arrived;
    signalfd_siginfo info;
    while (read(descriptor_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const int number = static_cast<int>(info.ssi_signo);
        if (number == SIGCHLD) {
            arrived.child_ended = true;
        } else if (number == SIGWINCH) {
            arrived.terminal_resized = true;
        } else {
            arrived.ending = number;
        }
    }
    return arrived;
}

}  // namespace sim
