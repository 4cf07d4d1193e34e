// SPDX-License-Identifier: Apache-2.0
#include "sim/transcript.h"

#include "sim/event.h"

namespace sim {

Transcript::Transcript(const std::filesystem::path& file)
    : file_("transcript", "--transcript", file) {}

void Transcript::event(const Event& event) {
    if (event.fields.contains("line")) return;
    nlohmann::ordered_json line;
    line["time"] = std::chrono::duration<double>(event.time).count();
    line["kind"] = event_kind_name(event.kind);
    for (const auto& [name, value] : event.fields.items()) line[name] = value;
    // Texts come from the daemon: what is not UTF-8 in them is replaced, not refused.
    file_.write(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}

void Transcript::close(const Ending&) {
    file_.close();
}

}  // namespace sim
