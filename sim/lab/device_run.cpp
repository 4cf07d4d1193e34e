// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/device_run.h"

#include <sys/resource.h>

#include <iostream>
#include <memory>
#include <sstream>

#include "sim/daemon_log.h"
#include "sim/lab/device_display.h"
#include "sim/lab/device_message.h"
#include "sim/lab/signal_name.h"
#include "sim/session.h"

namespace sim {
namespace {

Time cpu_time(const rusage& usage) {
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

rusage usage_of_whom(int whom) {
    rusage usage{};
    getrusage(whom, &usage);
    return usage;
}

Session::Result run(Session& session) {
    try {
        return session.run();
    } catch (const std::exception& error) {
        return {{Verdict::kFail, error.what()}};
    }
}

DeviceEnd end_of(const Session::Result& result) {
    if (result.verdict.outcome == Verdict::kPass) return {DeviceEnd::Outcome::kPassed, ""};
    std::string why = result.verdict.why;
    if (result.signal) why += " by " + signal_name(result.signal);
    return {DeviceEnd::Outcome::kFailed, why};
}

DeviceEnd run(const Options& options, const Scenario& scenario, DeviceDisplay& display) {
    SignalWatch signals;
    auto session = std::make_unique<Session>(options, scenario, signals, display);
    // An ordinary user's mounts are made by helpers, which are children as well.
    const Time helpers = cpu_time(usage_of_whom(RUSAGE_CHILDREN));
    session->start();
    DeviceEnd end = end_of(run(*session));
    if (options.keep && !options.root)
        std::cerr << "the root is kept: " << session->root().string() << std::endl;
    session.reset();
    const rusage own = usage_of_whom(RUSAGE_SELF);
    end.cost = {cpu_time(usage_of_whom(RUSAGE_CHILDREN)) - helpers, cpu_time(own),
                display.daemon_memory(), static_cast<uint64_t>(own.ru_maxrss) * 1024};
    return end;
}

}  // namespace

void run_device(const Options& options, const Scenario& scenario, int pipe) {
    // Many would say the same, and into the picture on the terminal.
    std::ostringstream notes;
    std::streambuf* const standard_error = std::cerr.rdbuf(notes.rdbuf());
    DeviceDisplay display(pipe);
    DeviceEnd end;
    try {
        end = run(options, scenario, display);
    } catch (const std::exception& error) {
        end = {DeviceEnd::Outcome::kCannotRun, error.what()};
    }
    std::cerr.rdbuf(standard_error);
    LineSplitter splitter;
    for (const std::string& line : splitter.add(notes.str())) display.tell(note_message(line));
    display.tell(end_message(end));
}

}  // namespace sim
