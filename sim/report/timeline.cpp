// SPDX-License-Identifier: Apache-2.0
#include "sim/report/timeline.h"

#include <algorithm>
#include <string_view>

#include "sim/event.h"
#include "sim/event_text.h"

namespace sim {
namespace {

constexpr TrackRow kRows[] = {
    {Track::kFaults, "Faults", "Trouble", "what was made to go wrong, when it struck"},
    {Track::kChecks, "Failed checks", "Trouble", "what the daemon did that it must not"},
    {Track::kDaemon, "Daemon", "Daemon", "its process"},
    {Track::kCommands, "Commands", "Daemon", "requests to the control device"},
    {Track::kProperties, "Properties", "Daemon", "system properties that were written"},
    {Track::kBootMode, "Boot mode", "Co-processor", "the boot mode that is set"},
    {Track::kProcessor, "Processor", "Co-processor", "whether its firmware runs"},
    {Track::kSpiBus, "SPI bus", "Co-processor", "while it is marked busy"},
    {Track::kBootStatus, "Boot status", "Co-processor", "what the daemon reported last"},
    {Track::kPower, "Power", "Co-processor", "what the kernel announced"},
    {Track::kWakelock, "Wakelock", "Daemon", "while the daemon keeps the device awake"},
    {Track::kDownload, "Download", "Protocol", "erase, then each image"},
    {Track::kMiscData, "Misc data", "Protocol", "each resource that was pushed"},
    {Track::kMemory, "Remote memory", "Protocol", "the co-processor's memory on the host"},
    {Track::kDfuChannel, "Channel dfu", "Channels", "packets of the download"},
    {Track::kMiscChannel, "Channel misc", "Channels", "packets of misc data"},
    {Track::kRmaChannel, "Channel rma", "Channels", "packets of remote memory"},
};

std::optional<Track> channel_track(const nlohmann::json& fields) {
    const std::string name = fields.value("channel", "");
    if (name == "dfu") return Track::kDfuChannel;
    if (name == "misc") return Track::kMiscChannel;
    if (name == "rma") return Track::kRmaChannel;
    return std::nullopt;
}

// What a track tells needs no heading of its own.
std::string without_heading(const std::string& text) {
    const size_t heading = text.find(": ");
    return heading == text.npos ? text : text.substr(heading + 2);
}

std::string image_name(const nlohmann::json& fields) {
    return fields.value("name", "") + " (" + std::to_string(fields.value("image", 0u)) + ")";
}

std::string resource_name(const nlohmann::json& fields) {
    const uint32_t type = fields.value("type", 0u);
    if (type == 0) return "Bluetooth firmware";
    if (type == 1) return "Bluetooth settings";
    return "type " + std::to_string(type);
}

}  // namespace

std::span<const TrackRow, kTracks> all_tracks() {
    return std::span<const TrackRow, kTracks>(kRows);
}

void Timeline::event(const Event& event) {
    now_ = std::max(now_, event.time);
    switch (event.kind) {
        case EventKind::kIoctl:
            return ioctl(event);
        case EventKind::kPacket:
            return packet(event.fields);
        case EventKind::kState:
            return state(event.fields);
        case EventKind::kPhase:
            return phase(event);
        case EventKind::kChannel:
            return channel(event.fields);
        case EventKind::kFault:
            return mark(Track::kFaults, event, true);
        case EventKind::kUevent:
            return power(event);
        case EventKind::kCheck:
            return mark(Track::kChecks, event, true);
        case EventKind::kSysfs:
            return sysfs(event.fields);
        case EventKind::kProperty:
            return mark(Track::kProperties, event);
        case EventKind::kDaemon:
            return daemon(event);
    }
}

void Timeline::close(Time time) {
    now_ = std::max(now_, time);
    // A state does not end with the run; what is a piece of work should have.
    for (const TrackRow& row : kRows) {
        shut(row.track, row.group != std::string_view("Protocol"));
    }
}

void Timeline::ioctl(const Event& event) {
    const nlohmann::json& fields = event.fields;
    const bool failed = fields.value("result", 0) < 0;
    mark(Track::kCommands, event, failed);
    if (failed || fields.value("command", "") != "boot status") return;
    change(Track::kBootStatus, fields.value("value", nlohmann::json()).dump());
}

void Timeline::state(const nlohmann::json& fields) {
    change(Track::kBootMode, fields.value("boot_mode", "?"));
    change(Track::kProcessor, fields.value("running", false) ? "running" : "");
    change(Track::kSpiBus, fields.value("spi_busy", false) ? "busy" : "");
}

void Timeline::phase(const Event& event) {
    const std::string phase = event.fields.value("phase", "");
    if (phase == "erase") return open(Track::kDownload, "erase");
    if (phase == "image") return begin_transfer(Track::kDownload, image_name(event.fields));
    if (phase == "image done") return end_transfer(Track::kDownload, true);
    if (phase == "misc resource") return end_transfer(Track::kMiscData, true);
    if (phase == "rma begins") return open(Track::kMemory, "first half");
    if (phase == "rma half") return open(Track::kMemory, "second half");
    if (phase == "rma ends") return shut(Track::kMemory);
    const bool misc = phase.starts_with("misc ");
    const bool refused = event.fields.value("state", "") == "refused";
    if (phase == "session cancelled") end_transfer(Track::kDownload, false);
    // The daemon asks for the state when all is erased; later on an image goes on behind it.
    if (!misc && !transfer_) shut(Track::kDownload);
    mark(misc ? Track::kMiscData : Track::kDownload, event,
         refused || phase == "session cancelled" || phase == "unknown image");
}

void Timeline::packet(const nlohmann::json& fields) {
    const auto track = channel_track(fields);
    if (!track) return;
    const bool to_daemon = fields.value("direction", "") == "to daemon";
    sink_.packet(*track, now_, to_daemon, fields.value("length", uint64_t{0}));
    if (to_daemon) return;
    if (*track == Track::kDfuChannel) follow_download(fields);
    if (*track == Track::kMiscChannel) follow_misc_data(fields);
}

void Timeline::follow_download(const nlohmann::json& fields) {
    if (!transfer_ || transfer_->track != Track::kDownload) return;
    const std::string name = fields.value("name", "");
    if (name == "IMG_INFO_RESP") transfer_->size = fields.value("size", uint64_t{0});
    if (name == "IMG_OFFSET_RESP") transfer_->bytes += fields.value("fragment", uint64_t{0});
}

void Timeline::follow_misc_data(const nlohmann::json& fields) {
    const std::string name = fields.value("name", "");
    if (name == "start") {
        begin_transfer(Track::kMiscData, resource_name(fields));
        transfer_->size = fields.value("size", uint64_t{0});
    }
    if (!transfer_ || transfer_->track != Track::kMiscData) return;
    if (name == "data" || name == "last data") {
        transfer_->bytes += fields.value("size", uint64_t{0});
    }
}

void Timeline::channel(const nlohmann::json& fields) {
    const auto track = channel_track(fields);
    if (!track) return;
    const std::string what = fields.value("change", "");
    if (what == "closed") return shut(*track);
    open(*track, what == "opened" ? "open" : what);
}

void Timeline::sysfs(const nlohmann::json& fields) {
    change(Track::kWakelock, fields.value("file", "") == "wake_lock" ? "held" : "");
}

void Timeline::daemon(const Event& event) {
    const nlohmann::json& fields = event.fields;
    if (fields.contains("line")) {
        const std::string text = fields.value("line", "");
        const LogLine line = parser_.parse(text);
        // What is left of a message that ends with a line feed of its own.
        if (!text.empty()) sink_.logged(now_, line);
        return;
    }
    if (fields.contains("started")) return open(Track::kDaemon, "runs");
    shut(Track::kDaemon);
    mark(Track::kDaemon, event, fields.contains("signal"));
}

void Timeline::power(const Event& event) {
    const bool down = event.fields.value("marlo_event", 0) == kPoweredDown;
    sink_.mark(Track::kPower, {now_, down ? "powered down" : "powered up"});
    if (!down) return;
    for (const Track track : {Track::kDownload, Track::kMiscData}) shut(track, false);
}

void Timeline::open(Track track, const std::string& text) {
    shut(track);
    open_[index_of(track)] = text;
    sink_.begin(track, now_, text);
}

void Timeline::change(Track track, const std::string& text) {
    if (open_[index_of(track)].value_or("") == text) return;
    if (text.empty()) return shut(track);
    open(track, text);
}

void Timeline::shut(Track track, bool finished) {
    if (!open_[index_of(track)]) return;
    if (transfer_ && transfer_->track == track) return end_transfer(track, false);
    open_[index_of(track)].reset();
    sink_.end(track, now_, finished);
}

void Timeline::mark(Track track, const Event& event, bool trouble) {
    sink_.mark(track, {now_, without_heading(describe(event).value_or("")), trouble});
}

void Timeline::begin_transfer(Track track, const std::string& name) {
    // There is one at a time: the updater has one transport.
    if (transfer_) end_transfer(transfer_->track, false);
    open(track, name);
    transfer_ = Transfer{track, name, now_, now_, 0, std::nullopt, false};
}

void Timeline::end_transfer(Track track, bool finished) {
    if (!transfer_ || transfer_->track != track) return;
    Transfer transfer = *transfer_;
    transfer_.reset();
    open_[index_of(track)].reset();
    sink_.end(track, now_, finished);
    transfer.end = now_;
    transfer.finished = finished;
    sink_.transferred(transfer);
}

}  // namespace sim
