// SPDX-License-Identifier: Apache-2.0
#include "daemon/OneAtATime.h"

#include <utility>

void OneAtATime::run(std::function<void()> job) {
    {
        const std::lock_guard lock(lock_);
        waiting_.push_back(std::move(job));
        if (std::exchange(is_running_, true)) {
            return;
        }
    }
    while (const std::function<void()> current = next()) {
        current();
    }
}

// Empty when there is nothing left to do.
std::function<void()> OneAtATime::next() {
    const std::lock_guard lock(lock_);
    if (waiting_.empty()) {
        is_running_ = false;
        return nullptr;
    }
    std::function<void()> job = std::move(waiting_.front());
    waiting_.pop_front();
    return job;
}
