// SPDX-License-Identifier: Apache-2.0
// What happens in a session, told to whoever wants to know: the judge, the transcript, the screen.
#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <vector>

namespace sim {

using Bytes = std::vector<uint8_t>;

// Time since the start of the session. The model is given it and never takes it from a clock.
using Time = std::chrono::nanoseconds;

// The fields of each kind of event. Kinds marked (model) are sent by the model, the others by the
// front end. All names in `fields` are fixed: transcripts are read by scripts.
enum class EventKind {
    kIoctl,     // (model) command, request, cmd, value, result; mode (a text) for the boot modes
    kPacket,    // (model) direction ("to daemon", "from daemon"), channel, length, name and, where
                // the message has them, image, offset, fragment, size, operation, code, state
    kState,     // (model) boot_mode, running, spi_busy: after one of them was set
    kPhase,     // (model) phase: "erase", "session begins", "image", "image done",
                // "session ends"; image and name where there is one
    kCheck,     // (model) failure: one failed check, in words
    kSysfs,     // (model) file, text: a write to /sys/power/wake_lock or wake_unlock
    kProperty,  // name, value: a property was written while the daemon runs
    kDaemon,    // line: one line of the daemon's log; or started; or exit: its exit status; or
                // signal: the signal that ended it
};

const char* event_kind_name(EventKind kind);

struct Event {
    Time time;
    EventKind kind;
    nlohmann::json fields;
};

class Observer {
  public:
    virtual ~Observer() = default;
    virtual void event(const Event& event) = 0;
};

}  // namespace sim
