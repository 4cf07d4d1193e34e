// SPDX-License-Identifier: Apache-2.0
#include "sim/event_text.h"

#include <cstring>

#include "sim/event.h"

namespace sim {
namespace {

std::string describe_command(const nlohmann::json& fields) {
    std::string text = "command: " + fields.value("command", "?");
    const int result = fields.value("result", 0);
    if (fields.contains("mode")) text += " " + fields.value("mode", "?");
    if (fields.value("command", "") == "boot status") text += " " + fields["value"].dump();
    if (result < 0) text += std::string(" fails: ") + std::strerror(-result);
    return text;
}

// Not the SPI bus: a command of its own tells about that.
std::string describe_state(const nlohmann::json& fields) {
    return std::string("co-processor: ") +
           (fields.value("running", false) ? "running" : "offline") + ", boot mode " +
           fields.value("boot_mode", "?");
}

std::string describe_phase(const nlohmann::json& fields) {
    const std::string phase = fields.value("phase", "?");
    std::string text = "download: " + phase;
    if (phase.starts_with("misc ")) text = "misc data: " + phase.substr(5);
    if (phase.starts_with("rma ")) text = "remote memory: " + phase.substr(4);
    if (fields.contains("type")) text += " " + fields["type"].dump();
    if (fields.contains("image")) text += " " + fields["image"].dump();
    if (fields.contains("name")) text += " " + fields.value("name", "");
    if (fields.contains("state")) text += " " + fields.value("state", "?");
    return text;
}

std::string describe_fault(const nlohmann::json& fields) {
    std::string text = "fault: " + fields.value("fault", "?");
    if (fields.contains("occasion")) text += ", occasion " + fields["occasion"].dump();
    if (fields.contains("value")) text += ", value " + fields.value("value", "");
    return text;
}

std::string describe_uevent(const nlohmann::json& fields) {
    return std::string("co-processor: announces that it is powered ") +
           (fields.value("marlo_event", 0) == kPoweredUp ? "up" : "down");
}

std::optional<std::string> describe_daemon(const nlohmann::json& fields) {
    if (fields.contains("started")) return "daemon: started";
    if (fields.contains("exit")) return "daemon: ends with exit status " + fields["exit"].dump();
    if (fields.contains("signal")) return "daemon: ended by signal " + fields["signal"].dump();
    return std::nullopt;
}

}  // namespace

std::optional<std::string> describe(const Event& event) {
    const nlohmann::json& fields = event.fields;
    switch (event.kind) {
        case EventKind::kIoctl:
            return describe_command(fields);
        case EventKind::kState:
            return describe_state(fields);
        case EventKind::kPhase:
            return describe_phase(fields);
        case EventKind::kChannel:
            return "channel " + fields.value("channel", "?") + ": " + fields.value("change", "?");
        case EventKind::kFault:
            return describe_fault(fields);
        case EventKind::kUevent:
            return describe_uevent(fields);
        case EventKind::kCheck:
            return "failed check: " + fields.value("failure", "?");
        case EventKind::kProperty:
            return "property: " + fields.value("name", "?") + " = " + fields.value("value", "");
        case EventKind::kDaemon:
            return describe_daemon(fields);
        case EventKind::kPacket:
        case EventKind::kSysfs:
            break;
    }
    return std::nullopt;
}

}  // namespace sim
