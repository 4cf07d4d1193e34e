// SPDX-License-Identifier: Apache-2.0
#include "sweep/scheduler.h"

#include <algorithm>
#include <utility>

namespace sweep {
namespace {

thread_local bool t_is_scheduled = false;
thread_local bool t_is_inside = false;  // a function of the scheduler

// The scheduler's own lock must not be taken for one of the product's.
struct Inside {
    Inside() : before(std::exchange(t_is_inside, true)) {}
    ~Inside() { t_is_inside = before; }
    const bool before;
};

}  // namespace

bool Scheduler::is_at_work() {
    return t_is_scheduled && !t_is_inside;
}

void Scheduler::run(const std::function<void()>& body) {
    auto task = std::make_unique<Task>();
    Task* const first = task.get();
    tasks_.push_back(std::move(task));
    current_ = first;
    begin(first, body);
}

void Scheduler::begin(Task* task, const std::function<void()>& body) {
    {
        const Inside inside;
        std::unique_lock lock(mutex_);
        task->id = std::this_thread::get_id();
        wait_for_turn(lock, task);
    }
    t_is_scheduled = true;
    body();
    t_is_scheduled = false;
    const Inside inside;
    const std::lock_guard lock(mutex_);
    task->ended = true;
    if (task != tasks_.front().get()) pass_on();
}

std::thread Scheduler::start(std::function<void()> body) {
    const Inside inside;
    auto task = std::make_unique<Task>();
    Task* const begun = task.get();
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    std::thread thread([this, begun, body = std::move(body)] { begin(begun, body); });
    const std::lock_guard lock(mutex_);
    begun->id = thread.get_id();
    return thread;
}

void Scheduler::join(std::thread& thread) {
    const std::thread::id id = thread.get_id();
    wait(
        [this, id] {
            return std::any_of(tasks_.begin(), tasks_.end(),
                               [id](const auto& task) { return task->id == id && task->ended; });
        },
        {});
    thread.join();
    const Inside inside;
    const std::lock_guard lock(mutex_);
    std::erase_if(tasks_, [id](const auto& task) { return task->id == id; });
}

bool Scheduler::wait(std::function<bool()> ready, std::optional<int64_t> deadline) {
    const Inside inside;
    std::unique_lock lock(mutex_);
    Task* const task = current_;
    task->ready = std::move(ready);
    task->deadline = deadline;
    task->waits = true;
    pass_on();
    wait_for_turn(lock, task);
    task->waits = false;
    return task->was_ready;
}

void Scheduler::yield() {
    if (!eager_) return;
    wait([] { return true; }, {});
}

size_t Scheduler::living_threads() const {
    return static_cast<size_t>(
        std::count_if(tasks_.begin(), tasks_.end(), [](const auto& task) { return !task->ended; }));
}

void Scheduler::wait_for_turn(std::unique_lock<std::mutex>& lock, Task* task) {
    task->turn.wait(lock, [this, task] { return current_ == task; });
}

// Hands the turn to the next thread that can go on, moving the clock to where there is one.
void Scheduler::pass_on() {
    Task* next = next_runnable();
    while (next == nullptr && move_clock()) next = next_runnable();
    if (next == nullptr) return hooks_.stuck();
    current_ = next;
    next->turn.notify_one();
}

Scheduler::Task* Scheduler::next_runnable() {
    const auto place = std::find_if(tasks_.begin(), tasks_.end(),
                                    [this](const auto& task) { return task.get() == current_; });
    const auto from = static_cast<size_t>(place - tasks_.begin());
    for (size_t step = 1; step <= tasks_.size(); ++step) {
        Task* const task = tasks_[(from + step) % tasks_.size()].get();
        if (task->ended) continue;
        task->was_ready = !task->waits || task->ready();
        if (task->was_ready || (task->deadline && *task->deadline <= now_)) return task;
    }
    return nullptr;
}

bool Scheduler::move_clock() {
    std::optional<int64_t> next = hooks_.next_event();
    for (const auto& task : tasks_) {
        if (task->ended || !task->deadline) continue;
        next = std::min(next.value_or(*task->deadline), *task->deadline);
    }
    if (!next) return false;
    const int64_t target = std::max(now_, *next);
    now_ = target;
    hooks_.clock_moves(target);
    return true;
}

}  // namespace sweep
