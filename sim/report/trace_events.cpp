// SPDX-License-Identifier: Apache-2.0
#include "sim/report/trace_events.h"

#include <algorithm>
#include <string_view>

#include "sim/event.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

constexpr Time kInterval = std::chrono::milliseconds(1);
constexpr int kFirstThread = 101;  // apart from the processes' numbers
constexpr int kLogThread = kFirstThread + static_cast<int>(kTracks);

std::string text_of(const Json& json) {
    return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

double microseconds(Time time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

int thread_of(Track track) {
    return kFirstThread + static_cast<int>(track);
}

// From 1 on: 0 is the idle process to some viewers.
int process_of(const char* group) {
    int number = 1;
    std::vector<std::string_view> seen;
    for (const TrackRow& row : all_tracks()) {
        if (row.group == std::string_view(group)) break;
        if (std::find(seen.begin(), seen.end(), row.group) != seen.end()) continue;
        seen.emplace_back(row.group);
        ++number;
    }
    return number;
}

int process_of(Track track) {
    return process_of(all_tracks()[static_cast<size_t>(track)].group);
}

}  // namespace

TraceEvents::TraceEvents(const std::filesystem::path& file)
    : file_("trace", "--trace", file), timeline_(*this) {}

// Nothing is written before the run has begun.
void TraceEvents::begin_file() {
    has_begun_ = true;
    file_.write("{\"displayTimeUnit\":\"ns\",\"traceEvents\":[");
    name_tracks();
}

void TraceEvents::name_tracks() {
    const auto name = [this](const char* what, int process, int thread, const char* text) {
        write({{"ph", "M"},
               {"pid", process},
               {"tid", thread},
               {"ts", 0},
               {"name", what},
               {"args", {{"name", text}}}});
    };
    for (const TrackRow& row : all_tracks()) {
        name("process_name", process_of(row.group), thread_of(row.track), row.group);
        name("thread_name", process_of(row.group), thread_of(row.track), row.name);
    }
    name("thread_name", process_of("Daemon"), kLogThread, "Log: warnings and worse");
}

void TraceEvents::close(const Ending& ending) {
    if (!has_begun_) begin_file();
    timeline_.close(ending.time);
    // Twice: what was in the last millisecond, and the rate's end.
    finish_interval(ending.time + kInterval);
    finish_interval(ending.time + 2 * kInterval);
    const Json about = {{"name", ending.name},
                        {"command", "marlo-sim " + ending.command},
                        {"verdict", ending.interrupted                         ? "interrupted"
                                    : ending.verdict.outcome == Verdict::kPass ? "pass"
                                                                               : "fail"},
                        {"why", ending.verdict.why}};
    file_.write("\n],\"otherData\":" + text_of(about) + "}\n");
    file_.close();
}

void TraceEvents::begin(Track track, Time time, const std::string& text) {
    add("B", track, time, {{"name", text}});
}

void TraceEvents::end(Track track, Time time, bool finished) {
    add("E", track, time, {{"args", {{"finished", finished}}}});
}

void TraceEvents::mark(Track track, const Moment& moment) {
    if (track == Track::kCommands) {
        return add("X", track, moment.time,
                   {{"name", moment.text}, {"dur", 0}, {"args", {{"failed", moment.trouble}}}});
    }
    add("i", track, moment.time,
        {{"name", moment.text}, {"s", "t"}, {"args", {{"trouble", moment.trouble}}}});
}

void TraceEvents::logged(Time time, const LogLine& line) {
    if (!is_trouble(line)) return;
    add("i", process_of("Daemon"), kLogThread, time,
        {{"name", line.text},
         {"s", "t"},
         {"args", {{"priority", std::string(1, line.priority)}, {"tag", line.tag}}}});
}

void TraceEvents::packet(Track channel, Time time, bool to_daemon, uint64_t bytes) {
    finish_interval(time);
    Counted& counted = counters_[{channel, to_daemon}];
    counted.bytes += bytes;
    counted.interval += bytes;
}

void TraceEvents::add(const char* phase, Track track, Time time, const Json& fields) {
    add(phase, process_of(track), thread_of(track), time, fields);
}

void TraceEvents::add(const char* phase, int process, int thread, Time time, const Json& fields) {
    finish_interval(time);
    Json event = {{"ph", phase}, {"pid", process}, {"tid", thread}, {"ts", microseconds(time)}};
    event.update(fields);
    pending_.push_back(std::move(event));
}

void TraceEvents::finish_interval(Time time) {
    const int64_t interval = time / kInterval;
    if (interval == interval_) return;
    write_counters(interval_ * kInterval);
    for (const Json& event : std::exchange(pending_, {})) write(event);
    // Where there is an interval of silence the rate goes down.
    if (interval > interval_ + 1) write_counters((interval_ + 1) * kInterval);
    interval_ = interval;
}

void TraceEvents::write_counters(Time begin) {
    for (auto& [key, counted] : counters_) {
        const auto& [track, to_daemon] = key;
        if (counted.interval == 0 && !counted.flows) continue;
        const std::string name = std::string(all_tracks()[static_cast<size_t>(track)].name) +
                                 (to_daemon ? " to daemon" : " from daemon");
        const auto per_second = counted.interval * (std::chrono::seconds(1) / kInterval);
        for (const auto& [what, value] :
             {std::pair{" bytes/s", per_second}, std::pair{" bytes", counted.bytes}}) {
            write({{"ph", "C"},
                   {"pid", process_of(track)},
                   {"tid", thread_of(track)},
                   {"ts", microseconds(begin)},
                   {"name", name + what},
                   {"args", {{"value", value}}}});
        }
        counted.flows = counted.interval != 0;
        counted.interval = 0;
    }
}

void TraceEvents::write(const Json& event) {
    if (!has_begun_) begin_file();
    file_.write(std::exchange(separator_, ",\n") + text_of(event));
}

}  // namespace sim
