// SPDX-License-Identifier: Apache-2.0
#include "sim/recorder.h"

#include <optional>

#include "sim/report/report.h"
#include "sim/report/trace_events.h"
#include "sim/transcript.h"

namespace sim {

Recorders::Recorders(const Options& options) {
    if (options.transcript) recorders_.push_back(std::make_unique<Transcript>(*options.transcript));
    if (options.report) recorders_.push_back(std::make_unique<Report>(*options.report));
    if (options.trace) recorders_.push_back(std::make_unique<TraceEvents>(*options.trace));
}

void Recorders::event(const Event& event) {
    for (const auto& recorder : recorders_) recorder->event(event);
}

void Recorders::close(const Ending& ending) {
    std::optional<RecordError> first;
    for (const auto& recorder : recorders_) {
        try {
            recorder->close(ending);
        } catch (const RecordError& error) {
            if (!first) first = error;
        }
    }
    if (first) throw RecordError(*first);
}

}  // namespace sim
