// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "sim/event.h"
#include "sim/report/report.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

// A page of some megabytes opens at once on a phone as well.
constexpr size_t kMostSpans = 4000;  // of a lane
constexpr size_t kMostMarks = 1500;  // of a lane, at either end
constexpr size_t kMostBuckets = 4000;
constexpr size_t kMostTransfers = 100;
constexpr size_t kMostTroubles = 1000;
constexpr size_t kMostFirstLines = 1000;
constexpr size_t kMostLastLines = 4000;
constexpr size_t kMostFailedSteps = 1000;
constexpr size_t kLongestText = 500;
constexpr size_t kLongestLine = 1000;

std::string clipped(const std::string& text, size_t longest) {
    if (text.size() <= longest) return text;
    return text.substr(0, longest) + " ... (" + std::to_string(text.size() - longest) +
           " bytes more)";
}

Json span_json(const Span& span) {
    return {span.begin.count(), span.end.count(), clipped(span.text, kLongestText),
            span.finished,      span.count,       span.filled.count()};
}

Json mark_json(const Moment& moment) {
    return {moment.time.count(), clipped(moment.text, kLongestText), moment.trouble};
}

// Where the marks that are left out were.
Json gap_json(const FirstAndLast<Moment>& marks) {
    if (marks.left_out() == 0) return nullptr;
    return {marks.first().back().time.count(), marks.last().front().time.count(), marks.left_out()};
}

Json rate_json(const RateBuckets& rates) {
    Json buckets = Json::array();
    for (const auto& [index, bucket] : rates.buckets()) {
        buckets.push_back({index, bucket.bytes, bucket.packets});
    }
    return {{"width", rates.width().count()}, {"buckets", std::move(buckets)}};
}

const char* outcome_name(Check::Outcome outcome) {
    switch (outcome) {
        case Check::kMet:
            return "met";
        case Check::kFailed:
            return "failed";
        case Check::kNotMet:
            return "not met";
        case Check::kNotLookedAt:
            return "not looked at";
    }
    return "?";
}

Json checks_json(const std::vector<Check>& checks) {
    Json all = Json::array();
    for (const Check& check : checks) {
        Json time = nullptr;
        if (check.time) time = check.time->count();
        all.push_back({{"words", clipped(check.words, kLongestText)},
                       {"outcome", outcome_name(check.outcome)},
                       {"time", std::move(time)},
                       {"why", clipped(check.why, kLongestText)}});
        if (all.size() == kMostFailedSteps) break;
    }
    return all;
}

const char* verdict_name(const Ending& ending) {
    if (ending.interrupted) return "interrupted";
    return ending.verdict.outcome == Verdict::kPass ? "pass" : "fail";
}

}  // namespace

ReportData::ReportData()
    : transfers_(kMostTransfers, kMostTransfers),
      troubles_(kMostTroubles, kMostTroubles),
      lines_(kMostFirstLines, kMostLastLines),
      log_rate_(kMostBuckets) {
    const Lane empty = {SpanList(kMostSpans), FirstAndLast<Moment>(kMostMarks, kMostMarks),
                        RateBuckets(kMostBuckets), RateBuckets(kMostBuckets)};
    lanes_.assign(kTracks, empty);
}

void ReportData::begin(Track track, Time time, const std::string& text) {
    at(track).begun = time;
    at(track).text = text;
}

void ReportData::end(Track track, Time time, bool finished) {
    Lane& lane = at(track);
    lane.spans.add({lane.begun, time, lane.text, finished});
}

void ReportData::mark(Track track, const Moment& moment) {
    if (track == Track::kCommands) ++commands_;
    at(track).marks.add(moment);
}

void ReportData::packet(Track channel, Time time, bool to_daemon, uint64_t bytes) {
    ++packets_;
    (to_daemon ? bytes_to_daemon_ : bytes_from_daemon_) += bytes;
    (to_daemon ? at(channel).to_daemon : at(channel).from_daemon).add(time, bytes);
}

void ReportData::transferred(const Transfer& transfer) {
    transfers_.add(transfer);
}

void ReportData::logged(Time time, const LogLine& logged) {
    Line line = {log_lines_++, time, logged};
    line.line.text = clipped(logged.text, kLongestLine);
    line.line.tag = clipped(logged.tag, kLongestText);
    if (is_trouble(logged)) return troubles_.add(std::move(line));
    log_rate_.add(time, 0);
    lines_.add(std::move(line));
}

Json ReportData::json(const Ending& ending, const std::string& started) const {
    Json lanes = Json::array();
    for (const TrackRow& row : all_tracks()) {
        Json one = lane(row);
        if (!one.is_null()) lanes.push_back(std::move(one));
    }
    return {
        {"name", ending.name},
        {"description", ending.description},
        {"command", "marlo-sim " + ending.command},
        {"started", started},
        {"verdict", verdict_name(ending)},
        {"why", clipped(ending.verdict.why, kLongestLine)},
        {"end", ending.time.count()},
        {"totals", totals()},
        {"steps", checks_json(ending.steps)},
        {"logs", checks_json(ending.logs)},
        {"state", checks_json(ending.state)},
        {"lanes", std::move(lanes)},
        {"transfers", transfers()},
        {"log", log()},
        {"log_rate", rate_json(log_rate_)},
    };
}

// Nothing for a lane with nothing on it.
Json ReportData::lane(const TrackRow& row) const {
    const Lane& lane = lanes_[index_of(row.track)];
    const bool rated = !lane.to_daemon.buckets().empty() || !lane.from_daemon.buckets().empty();
    if (lane.spans.spans().empty() && lane.marks.first().empty() && !rated) return nullptr;
    Json spans = Json::array();
    for (const Span& span : lane.spans.spans()) spans.push_back(span_json(span));
    Json marks = Json::array();
    for (const Moment& moment : lane.marks.first()) marks.push_back(mark_json(moment));
    for (const Moment& moment : lane.marks.last()) marks.push_back(mark_json(moment));
    Json json = {{"name", row.name},          {"group", row.group},
                 {"what", row.what},          {"spans", std::move(spans)},
                 {"marks", std::move(marks)}, {"gap", gap_json(lane.marks)}};
    if (rated) json["rates"] = {rate_json(lane.from_daemon), rate_json(lane.to_daemon)};
    return json;
}

// In order, with the number of lines left out wherever some are.
Json ReportData::log() const {
    std::vector<const Line*> kept;
    for (const FirstAndLast<Line>* lines : {&lines_, &troubles_}) {
        for (const Line& line : lines->first()) kept.push_back(&line);
        for (const Line& line : lines->last()) kept.push_back(&line);
    }
    std::sort(kept.begin(), kept.end(),
              [](const Line* a, const Line* b) { return a->number < b->number; });
    Json all = Json::array();
    uint64_t next = 0;
    for (const Line* line : kept) {
        if (line->number != next) all.push_back({line->time.count(), line->number - next});
        next = line->number + 1;
        all.push_back({line->time.count(), std::string(1, line->line.priority), line->line.tag,
                       line->line.text});
    }
    return all;
}

Json ReportData::transfers() const {
    Json all = Json::array();
    const auto add = [&all](const Transfer& transfer) {
        Json size = nullptr;
        if (transfer.size) size = *transfer.size;
        all.push_back({{"lane", all_tracks()[index_of(transfer.track)].name},
                       {"name", clipped(transfer.name, kLongestText)},
                       {"begin", transfer.begin.count()},
                       {"end", transfer.end.count()},
                       {"bytes", transfer.bytes},
                       {"size", std::move(size)},
                       {"finished", transfer.finished}});
    };
    std::for_each(transfers_.first().begin(), transfers_.first().end(), add);
    if (transfers_.left_out() != 0) all.push_back({{"left_out", transfers_.left_out()}});
    std::for_each(transfers_.last().begin(), transfers_.last().end(), add);
    return all;
}

Json ReportData::totals() const {
    return {{"packets", packets_},
            {"to_daemon", bytes_to_daemon_},
            {"from_daemon", bytes_from_daemon_},
            {"commands", commands_},
            {"log_lines", log_lines_}};
}

}  // namespace sim
