// SPDX-License-Identifier: Apache-2.0
#include "bench/held_signals.h"

#include <stdexcept>
#include <string>

namespace bench {
namespace {

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGTERM};

}  // namespace

HeldSignals::HeldSignals() {
    const sigset_t held = signals();
    ::pthread_sigmask(SIG_BLOCK, &held, &before_);
}

HeldSignals::~HeldSignals() {
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

sigset_t HeldSignals::signals() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : kEndingSignals) {
        ::sigaddset(&set, signal);
    }
    return set;
}

void HeldSignals::throw_if_pending() {
    sigset_t pending;
    ::sigpending(&pending);
    for (const int signal : kEndingSignals) {
        if (::sigismember(&pending, signal) == 1) {
            throw std::runtime_error("ended by signal " + std::to_string(signal));
        }
    }
}

}  // namespace bench
