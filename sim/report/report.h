// SPDX-License-Identifier: Apache-2.0
// A run as one page for a browser, to look at and to hand on.
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim/record_file.h"
#include "sim/recorder.h"
#include "sim/report/bounded.h"
#include "sim/report/timeline.h"

namespace sim {

// What the page shows. It stays small enough to be opened, however long the run is.
class ReportData : public TimelineSink {
  public:
    ReportData();

    void begin(Track track, Time time, const std::string& text) override;
    void end(Track track, Time time, bool finished) override;
    void mark(Track track, const Moment& moment) override;
    void packet(Track channel, Time time, bool to_daemon, uint64_t bytes) override;
    void transferred(const Transfer& transfer) override;
    void logged(Time time, const LogLine& line) override;

    // `started`: when, in words.
    nlohmann::ordered_json json(const Ending& ending, const std::string& started) const;

  private:
    struct Line {
        uint64_t number;
        Time time;
        LogLine line;
    };
    struct Lane {
        SpanList spans;
        FirstAndLast<Moment> marks;
        RateBuckets to_daemon;
        RateBuckets from_daemon;
        Time begun{0};  // the span that is open, and its text
        std::string text = {};
    };
    nlohmann::ordered_json lane(const TrackRow& row) const;
    nlohmann::ordered_json log() const;
    nlohmann::ordered_json transfers() const;
    nlohmann::ordered_json totals() const;
    Lane& at(Track track) { return lanes_[index_of(track)]; }

    std::vector<Lane> lanes_;  // one a track
    FirstAndLast<Transfer> transfers_;
    FirstAndLast<Line> troubles_;  // warnings and worse, and what is no line of the log
    FirstAndLast<Line> lines_;     // the others
    RateBuckets log_rate_;         // of these, all of them
    uint64_t packets_ = 0;
    uint64_t bytes_to_daemon_ = 0;
    uint64_t bytes_from_daemon_ = 0;
    uint64_t commands_ = 0;
    uint64_t log_lines_ = 0;
};

// As a script element of a page holds it: nothing in it ends the element or is taken for markup.
std::string script_text(const nlohmann::ordered_json& data);

// The whole page.
std::string report_page(const nlohmann::ordered_json& data);

class Report : public Recorder {
  public:
    explicit Report(const std::filesystem::path& file);
    void event(const Event& event) override { timeline_.event(event); }
    void close(const Ending& ending) override;

  private:
    RecordFile file_;
    std::string started_;
    ReportData data_;
    Timeline timeline_;
};

}  // namespace sim
