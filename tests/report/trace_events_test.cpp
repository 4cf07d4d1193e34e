// SPDX-License-Identifier: Apache-2.0
// The trace of events that are as odd as a co-processor out of order makes them. What real runs
// make of it is read by read_trace.py.
#include "sim/report/trace_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "sim/event.h"
#include "tests/sim_front/temporary_directory.h"

namespace sim {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

std::vector<Json> trace_of(const std::vector<Event>& events, Time end) {
    TemporaryDirectory directory;
    TraceEvents trace(directory.path() / "trace.json");
    for (const Event& event : events) trace.event(event);
    Ending ending;
    ending.time = end;
    trace.close(ending);
    std::ifstream file(directory.path() / "trace.json");
    return Json::parse(file)["traceEvents"];
}

std::vector<Json> with_letter(const std::vector<Json>& trace, const std::string& letter) {
    std::vector<Json> some;
    for (const Json& event : trace) {
        if (event["ph"] == letter) some.push_back(event);
    }
    return some;
}

TEST(TraceEvents, SlicesCloseAndTimesGoOnWhateverIsTold) {
    const Json busy = {{"boot_mode", "HOST"}, {"running", true}, {"spi_busy", true}};
    const auto trace = trace_of(
        {{2ms, EventKind::kState, busy},
         {1ms, EventKind::kPhase, {{"phase", "image"}, {"image", 3}, {"name", "\xff\"</"}}},
         {3ms, EventKind::kPhase, {{"phase", "image"}, {"image", 4}, {"name", "DSP"}}},
         {3ms, EventKind::kPhase, {{"phase", "image done"}, {"image", 7}}},
         {3ms, EventKind::kPhase, {{"phase", "image done"}, {"image", 7}}},
         {4ms, EventKind::kChannel, {{"channel", "dfu"}, {"change", "closed"}}},
         {4ms, EventKind::kPhase, {{"phase", "rma begins"}}},
         {5ms, EventKind::kSysfs, {{"file", "wake_unlock"}, {"text", "x"}}},
         {6ms, EventKind::kDaemon, {{"exit", 1}}}},
        4ms);
    double last = 0;
    std::map<int, int> open;
    for (const Json& event : trace) {
        EXPECT_GE(event["ts"].get<double>(), last);
        last = event["ts"];
        if (event["ph"] == "B") ++open[event["tid"]];
        if (event["ph"] != "E") continue;
        EXPECT_GE(--open[event["tid"]], 0) << event;
    }
    for (const auto& [thread, number] : open) EXPECT_EQ(number, 0) << "thread " << thread;
    EXPECT_EQ(with_letter(trace, "B").size(), 6u);
}

TEST(TraceEvents, RateStandsWhereThePacketsAreAndEndsWithThem) {
    std::vector<Event> events;
    for (const Time time : {Time{10us}, Time{500us}, Time{5ms}}) {
        events.push_back({time,
                          EventKind::kPacket,
                          {{"channel", "rma"}, {"direction", "to daemon"}, {"length", 100}}});
    }
    std::vector<std::pair<double, double>> rates;
    std::vector<double> bytes;
    for (const Json& event : with_letter(trace_of(events, 9ms), "C")) {
        const double value = event["args"]["value"];
        if (event["name"] == "Channel rma to daemon bytes") bytes.push_back(value);
        if (event["name"] != "Channel rma to daemon bytes/s") continue;
        rates.emplace_back(event["ts"].get<double>(), value);
    }
    const std::vector<std::pair<double, double>> expected = {
        {0, 200e3}, {1000, 0}, {5000, 100e3}, {6000, 0}};
    EXPECT_EQ(rates, expected);
    EXPECT_EQ(bytes, (std::vector<double>{200, 200, 300, 300}));
}

}  // namespace
}  // namespace sim
