// SPDX-License-Identifier: Apache-2.0
#include "sim/reporter.h"

#include <algorithm>
#include <utility>

#include "sim/event.h"

namespace sim {

const char* event_kind_name(EventKind kind) {
    switch (kind) {
        case EventKind::kIoctl:
            return "ioctl";
        case EventKind::kPacket:
            return "packet";
        case EventKind::kState:
            return "state";
        case EventKind::kPhase:
            return "phase";
        case EventKind::kChannel:
            return "channel";
        case EventKind::kFault:
            return "fault";
        case EventKind::kUevent:
            return "uevent";
        case EventKind::kCheck:
            return "check";
        case EventKind::kSysfs:
            return "sysfs";
        case EventKind::kProperty:
            return "property";
        case EventKind::kDaemon:
            return "daemon";
    }
    return "?";
}

void Reporter::set_time(Time now) {
    now_ = std::max(now_, now);
}

void Reporter::emit(EventKind kind, nlohmann::json fields) {
    observer_.event({now_, kind, std::move(fields)});
}

void Reporter::fail(const std::string& what) {
    constexpr size_t kMaxFailures = 100;
    if (failures_.size() >= kMaxFailures) return;
    failures_.push_back(what);
    emit(EventKind::kCheck, {{"failure", what}});
}

}  // namespace sim
