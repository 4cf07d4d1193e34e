// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <mutex>

// Keeps jobs of several threads apart without making any of them wait, and without a lock while a
// job runs: a job that comes while another one runs is run after it, by that one's thread.
class OneAtATime {
  public:
    // Any thread, not from inside a job that waits for `job`.
    void run(std::function<void()> job);

  private:
    std::function<void()> next();

    std::mutex lock_;
    std::deque<std::function<void()>> waiting_;
    bool is_running_ = false;
};
