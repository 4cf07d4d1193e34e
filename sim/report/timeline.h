// SPDX-License-Identifier: Apache-2.0
// The events of a run as what a picture of it shows: tracks with spans and marks, side by side.
#pragma once

#include <array>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "sim/daemon_log.h"
#include "sim/observer.h"

namespace sim {

// A warning or worse, or what is no line of the log.
inline bool is_trouble(const LogLine& line) {
    return std::string_view("VDI").find(line.priority) == std::string_view::npos;
}

enum class Track {
    kFaults,
    kChecks,
    kDaemon,
    kCommands,
    kProperties,
    kBootMode,
    kProcessor,
    kSpiBus,
    kBootStatus,
    kPower,
    kWakelock,
    kDownload,
    kMiscData,
    kMemory,
    kDfuChannel,
    kMiscChannel,
    kRmaChannel,
};
constexpr size_t kTracks = 17;
constexpr size_t index_of(Track track) {
    return static_cast<size_t>(track);
}

struct TrackRow {
    Track track;
    const char* name;
    const char* group;  // what it is a part of
    const char* what;   // one line
};
std::span<const TrackRow, kTracks> all_tracks();  // in the order of the enumerators

struct Moment {
    Time time;
    std::string text;
    bool trouble = false;  // something that somebody who looks for what went wrong looks for
};

// One image, or one resource of misc data, as far as it got.
struct Transfer {
    Track track;
    std::string name;
    Time begin;
    Time end;
    uint64_t bytes = 0;            // that the daemon sent of it, repeated ones included
    std::optional<uint64_t> size;  // that the daemon has told
    bool finished = false;
};

class TimelineSink {
  public:
    virtual ~TimelineSink() = default;
    // On a track one span is open at most, and times never go backwards.
    virtual void begin(Track track, Time time, const std::string& text) = 0;
    virtual void end(Track track, Time time, bool finished) = 0;
    virtual void mark(Track track, const Moment& moment) = 0;
    virtual void packet(Track channel, Time time, bool to_daemon, uint64_t bytes) = 0;
    virtual void transferred(const Transfer& transfer) = 0;  // after the end of its span
    virtual void logged(Time time, const LogLine& line) = 0;
};

class Timeline : public Observer {
  public:
    explicit Timeline(TimelineSink& sink) : sink_(sink) {}  // which must outlive this object

    void event(const Event& event) override;
    // Ends what is still under way.
    void close(Time time);

  private:
    void ioctl(const Event& event);
    void state(const nlohmann::json& fields);
    void phase(const Event& event);
    void packet(const nlohmann::json& fields);
    void channel(const nlohmann::json& fields);
    void sysfs(const nlohmann::json& fields);
    void daemon(const Event& event);
    void power(const Event& event);

    void follow_download(const nlohmann::json& fields);
    void follow_misc_data(const nlohmann::json& fields);
    void open(Track track, const std::string& text);
    // The same text: it goes on. Empty: the span ends.
    void change(Track track, const std::string& text);
    void shut(Track track, bool finished = true);
    void mark(Track track, const Event& event, bool trouble = false);
    void begin_transfer(Track track, const std::string& name);
    void end_transfer(Track track, bool finished);

    TimelineSink& sink_;
    Time now_{0};
    LogParser parser_;
    std::array<std::optional<std::string>, kTracks> open_;  // the text of the span
    std::optional<Transfer> transfer_;
};

}  // namespace sim
