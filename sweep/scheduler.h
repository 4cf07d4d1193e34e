// SPDX-License-Identifier: Apache-2.0
// Runs the product's threads one at a time, in an order that depends on nothing but what they do,
// on a clock that moves only when all of them wait. The same run takes the same course each time,
// and waits take no time.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace sweep {

class Scheduler {
  public:
    struct Hooks {
        // When something happens by itself next; none: never.
        std::function<std::optional<int64_t>()> next_event;
        // All threads wait, and the clock is about to move to this time; it moves on afterwards.
        std::function<void(int64_t)> clock_moves;
        // Nobody will ever run again.
        std::function<void()> stuck;
    };
    explicit Scheduler(Hooks hooks) : hooks_(std::move(hooks)) {}

    // With `lets_others_run_first`, a thread that yields goes behind the others; without, it goes
    // on until it has to wait.
    void set_eager(bool lets_others_run_first) { eager_ = lets_others_run_first; }

    // Where the clock begins.
    void set_time(int64_t now) { now_ = now; }

    // Runs `body` as the first thread; returns when it has returned. The other threads stay behind.
    void run(const std::function<void()>& body);

    // The rest is for the threads that run() and start() run.
    std::thread start(std::function<void()> body);
    void join(std::thread& thread);
    // Until `ready` says so or the clock has reached `deadline`: true in the first case. `ready`
    // may be asked on another thread, while this one stands still.
    bool wait(std::function<bool()> ready, std::optional<int64_t> deadline);
    void yield();

    int64_t now() const { return now_; }
    size_t living_threads() const;  // also for the hooks
    // Whether the caller is one of the threads above and not inside one of these functions.
    static bool is_at_work();

  private:
    struct Task {
        std::condition_variable turn;
        std::function<bool()> ready;
        std::optional<int64_t> deadline;
        bool waits = false;
        bool ended = false;
        bool was_ready = false;
        std::thread::id id;
    };

    void begin(Task* task, const std::function<void()>& body);
    void wait_for_turn(std::unique_lock<std::mutex>& lock, Task* task);
    void pass_on();
    Task* next_runnable();
    bool move_clock();

    Hooks hooks_;
    bool eager_ = false;
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<Task>> tasks_;
    Task* current_ = nullptr;
    int64_t now_ = 0;
};

}  // namespace sweep
