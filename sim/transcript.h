// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include "sim/record_file.h"
#include "sim/recorder.h"

namespace sim {

// Writes each event as one line of JSON: "time" (seconds since the start), "kind", and the fields
// that event.h lists for the kind. Lines of the daemon's log are left out.
class Transcript : public Recorder {
  public:
    explicit Transcript(const std::filesystem::path& file);
    void event(const Event& event) override;
    void close(const Ending& ending) override;

  private:
    RecordFile file_;
};

}  // namespace sim
