// SPDX-License-Identifier: Apache-2.0
#include "sim/transcript.h"

#include <stdexcept>

namespace sim {

Transcript::Transcript(const std::filesystem::path& file) : path_(file), file_(file) {
    if (!file_) throw std::runtime_error("cannot write the transcript " + path_.string());
}

void Transcript::event(const Event& event) {
    if (event.fields.contains("line")) return;
    nlohmann::ordered_json line;
    line["time"] = std::chrono::duration<double>(event.time).count();
    line["kind"] = event_kind_name(event.kind);
    for (const auto& [name, value] : event.fields.items()) line[name] = value;
    // Texts come from the daemon: what is not UTF-8 in them is replaced, not refused.
    file_ << line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void Transcript::close() {
    file_.close();
    if (!file_) throw std::runtime_error("cannot write the transcript " + path_.string());
}

}  // namespace sim
