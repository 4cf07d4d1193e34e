// SPDX-License-Identifier: Apache-2.0
#include "sim/daemon_watch.h"

namespace sim {
namespace {

constexpr Time kSecond = std::chrono::seconds(1);
constexpr Time kAfterwards = std::chrono::milliseconds(300);  // what it last did is over by then

// A reader that finds nothing goes round a hundred times a second, with some requests and lines
// each time. What it is asked leads to some more of both: a start of the daemon to most.
constexpr uint64_t kRequestsInSecond = 2500;
constexpr uint64_t kRequestsForTask = 20;
constexpr uint64_t kLinesInSecond = 4000;
constexpr uint64_t kLinesForRequest = 30;

}  // namespace

DaemonBounds usual_bounds() {
    DaemonBounds bounds;
#if defined(__SANITIZE_THREAD__)
    bounds.threads += 1;
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    bounds.memory *= 10;
#endif
    return bounds;
}

std::string out_of_bounds(const ProcessUsage& usage, const DaemonBounds& bounds) {
    if (usage.threads <= bounds.threads && usage.descriptors <= bounds.descriptors &&
        usage.memory <= bounds.memory) {
        return "";
    }
    return "the resting daemon holds " + usage_text(usage) + "; it may hold " +
           usage_text({.memory = bounds.memory,
                       .threads = bounds.threads,
                       .descriptors = bounds.descriptors});
}

void DaemonWatch::stir(Time now) {
    active_at_ = now;
    used_before_.reset();
}

void DaemonWatch::look_for_silence(Time now, pid_t process) {
    if (now_.lines + now_.requests != seen_) {
        seen_ = now_.lines + now_.requests;
        stir(now);
    }
    if (used_before_ || now < active_at_ + kAfterwards) return;
    if (const auto usage = usage_of(process)) used_before_ = usage->cpu;
    silent_at_ = now;
}

std::string DaemonWatch::look(Time now, pid_t process, uint64_t requests, uint64_t tasks) {
    now_.requests = requests;
    now_.tasks = tasks;
    look_for_silence(now, process);
    if (now < second_ + kSecond) return "";
    const auto seconds = static_cast<uint64_t>((now - second_) / kSecond);
    const Counts counts = {now_.lines - before_.lines, now_.requests - before_.requests,
                           now_.tasks - before_.tasks};
    second_ = now;
    before_ = now_;
    if (counts.requests > seconds * kRequestsInSecond + counts.tasks * kRequestsForTask) {
        return "the daemon has made " + std::to_string(counts.requests) + " requests in " +
               std::to_string(seconds) + " s, with " + std::to_string(counts.tasks) +
               " things to do";
    }
    if (counts.lines > seconds * kLinesInSecond + counts.requests * kLinesForRequest) {
        return "the daemon has logged " + std::to_string(counts.lines) + " lines in " +
               std::to_string(seconds) + " s, with " + std::to_string(counts.requests) +
               " requests";
    }
    return "";
}

double DaemonWatch::silent_cpu(Time now, const ProcessUsage& usage) const {
    if (!used_before_ || now <= silent_at_) return 0;
    const Time used = usage.cpu - *used_before_;
    return 100.0 * static_cast<double>(used.count()) /
           static_cast<double>((now - silent_at_).count());
}

}  // namespace sim
