// SPDX-License-Identifier: Apache-2.0
// What happens in a session, told to whoever wants to know: the judge, the transcript, the screen.
#pragma once

#include <chrono>
#include <cstdint>
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
                // the message has them, image, offset, fragment, size, operation, code, state;
                // on channel "misc" type, size, sequence, and of an answer status, limit; on
                // channel "rma" memory, second, size, word, offset, block, result, and of a request
                // of the program step: its index
    kState,     // (model) boot_mode, running, spi_busy: after one of them was set
    kPhase,     // (model) phase: "erase", "session begins", "image", "image done",
                // "session cancelled", "session ends"; image and name where there is one
                // "state": a state query is answered; state: "INIT", "INFO_REQ", "OFFSET_REQ",
                // "SESSION_END_REQ", "CANCEL_UPDATE_REQ" or "refused"
                // "unknown image": one without bytes was asked for; image
                // "misc begins": the first packet of misc data; "misc resource": one is complete;
                // type, size; "misc ends": the finish was taken
                // "rma begins": the channel was opened for the first time; "rma half", "rma ends":
                // so many steps of the program are done
    kChannel,   // (model) channel, change: "opened", "hung up", "closed"
    kFault,     // (model) fault, occasion (its number) and, where it has one, value (a text): it
                // strikes now
    kUevent,    // (model) marlo_event: 1 powered down, 4 powered up
    kCheck,     // (model) failure: one failed check, in words
    kSysfs,     // (model) file, text: a write to /sys/power/wake_lock or wake_unlock
    kProperty,  // name, value: a property was written while the daemon runs
    kDaemon,    // line: one line of the daemon's log; or started; or exit: its exit status; or
                // signal: the signal that ended it
};

// What the kernel announces of the co-processor.
constexpr int kPoweredDown = 1;
constexpr int kPoweredUp = 4;

const char* event_kind_name(EventKind kind);

struct Event;  // sim/event.h: with its fields, which few need

class Observer {
  public:
    virtual ~Observer() = default;
    virtual void event(const Event& event) = 0;
};

}  // namespace sim
