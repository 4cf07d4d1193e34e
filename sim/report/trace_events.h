// SPDX-License-Identifier: Apache-2.0
// A run in the Trace Event Format, which trace viewers open.
//
// A group of tracks is a process, a track is a thread of it. Spans are slices (B, E), commands are
// slices as well (X, of no length: the co-processor answers at once), other marks are instants (i).
// Counters (C) tell the rate of each direction of a channel, and its bytes so far, for each
// millisecond in which there were packets.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sim/record_file.h"
#include "sim/recorder.h"
#include "sim/report/timeline.h"

namespace sim {

class TraceEvents : public Recorder, private TimelineSink {
  public:
    explicit TraceEvents(const std::filesystem::path& file);
    void event(const Event& event) override { timeline_.event(event); }
    void close(const Ending& ending) override;

  private:
    void begin(Track track, Time time, const std::string& text) override;
    void end(Track track, Time time, bool finished) override;
    void mark(Track track, const Moment& moment) override;
    void packet(Track channel, Time time, bool to_daemon, uint64_t bytes) override;
    void transferred(const Transfer&) override {}
    void logged(Time time, const LogLine& line) override;  // warnings and worse

    void begin_file();
    void name_tracks();
    // `phase`: the format's letter; `fields`: what else it has.
    void add(const char* phase, int process, int thread, Time time,
             const nlohmann::ordered_json& fields);
    void add(const char* phase, Track track, Time time, const nlohmann::ordered_json& fields);
    void write(const nlohmann::ordered_json& event);
    // Counters stand at the beginning of their millisecond, and so before whatever else is in it.
    void finish_interval(Time time);
    void write_counters(Time begin);

    struct Counted {
        uint64_t bytes = 0;     // in all
        uint64_t interval = 0;  // in this interval
        bool flows = false;     // the rate was not 0 in the interval before
    };

    RecordFile file_;
    bool has_begun_ = false;  // the file
    const char* separator_ = "\n";
    int64_t interval_ = 0;                         // its number
    std::vector<nlohmann::ordered_json> pending_;  // of the interval
    std::map<std::pair<Track, bool>, Counted> counters_;
    Timeline timeline_;
};

}  // namespace sim
