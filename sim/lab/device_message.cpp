// SPDX-License-Identifier: Apache-2.0
#include "sim/lab/device_message.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "sim/daemon_log.h"

namespace sim {
namespace {

constexpr size_t kLongestText = 1000;

// In the order of the enumerators.
constexpr const char* kOutcomes[] = {"passed", "failed", "cannot run"};

std::string short_text(std::string_view text) {
    return printable(text.substr(0, kLongestText));
}

std::string line_of(const nlohmann::json& message) {
    return message.dump() + "\n";
}

void take_amount(const nlohmann::json& message, DeviceState& state) {
    state.daemon_runs = true;
    const uint64_t done = message.at("done");
    const uint64_t total = message.at("total");
    state.moving = message.value("moving", "");
    state.remaining.reset();
    if (message.contains("remaining")) state.remaining = Time(message["remaining"]);
    state.bytes = std::max(state.bytes, done);
    if (total == 0) return;
    const double part = static_cast<double>(done) / static_cast<double>(total);
    state.part = std::clamp(part, state.part, 1.0);
}

void take_end(const nlohmann::json& message, DeviceState& state) {
    const auto found = std::find(std::begin(kOutcomes), std::end(kOutcomes), message.at("outcome"));
    if (found == std::end(kOutcomes)) return;
    state.end = DeviceEnd{static_cast<DeviceEnd::Outcome>(found - std::begin(kOutcomes)),
                          message.at("why"),
                          {Time(message.at("daemon_cpu")), Time(message.at("coprocessor_cpu")),
                           message.at("daemon_memory"), message.at("coprocessor_memory")}};
}

}  // namespace

std::string amount_message(uint64_t done, uint64_t total, const std::optional<Progress>& present) {
    nlohmann::json message = {{"done", done}, {"total", total}};
    if (present) message["moving"] = short_text(present->what);
    if (present && present->remaining) message["remaining"] = present->remaining->count();
    return line_of(message);
}

std::string log_message(std::string_view line) {
    return line_of({{"log", short_text(line)}});
}

std::string note_message(std::string_view line) {
    return line_of({{"note", short_text(line)}});
}

std::string end_message(const DeviceEnd& end) {
    return line_of({{"outcome", kOutcomes[static_cast<size_t>(end.outcome)]},
                    {"why", short_text(end.why)},
                    {"daemon_cpu", end.cost.daemon_cpu.count()},
                    {"coprocessor_cpu", end.cost.coprocessor_cpu.count()},
                    {"daemon_memory", end.cost.daemon_memory},
                    {"coprocessor_memory", end.cost.coprocessor_memory}});
}

// A process that was ended while it wrote leaves half a line.
void take_message(const std::string& line, DeviceState& state) {
    const nlohmann::json message = nlohmann::json::parse(line, nullptr, false);
    if (!message.is_object()) return;
    if (message.contains("done")) take_amount(message, state);
    if (message.contains("log")) state.log.push_back(message["log"]);
    if (message.contains("note")) state.notes.push_back(message["note"]);
    if (message.contains("outcome")) take_end(message, state);
}

}  // namespace sim
