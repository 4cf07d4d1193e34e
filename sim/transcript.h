// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>

#include "sim/event.h"

namespace sim {

// Writes each event as one line of JSON: "time" (seconds since the start), "kind", and the fields
// that event.h lists for the kind. Lines of the daemon's log are left out.
class Transcript : public Observer {
  public:
    // Throws std::runtime_error if the file cannot be written.
    explicit Transcript(const std::filesystem::path& file);
    void event(const Event& event) override;
    // Throws std::runtime_error if a line could not be written.
    void close();

  private:
    std::filesystem::path path_;
    std::ofstream file_;
};

}  // namespace sim
