// SPDX-License-Identifier: Apache-2.0
// What is written to files about a run, whether a scenario or a trial.
#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/observer.h"
#include "sim/options.h"
#include "sim/scenario.h"

namespace sim {

// How a run ended.
struct Ending {
    std::string name;         // of the scenario or the trial, as the verdict's line has it
    std::string description;  // one line; may be empty
    std::string command;      // that does it once more, with marlo-sim in front
    Verdict verdict = {Verdict::kRunning, ""};
    bool interrupted = false;  // by the user: the verdict is void
    Time time{0};
    // Of a scenario: its steps and lines of the log, and how things were at the end.
    std::vector<Check> steps = {};
    std::vector<Check> logs = {};
    std::vector<Check> state = {};
};

// A file that was asked for cannot be written; what() names it.
class RecordError : public std::runtime_error {
  public:
    // `reason`: empty, or ": " and more about it.
    RecordError(const char* what, const std::filesystem::path& file, const std::string& reason = "")
        : std::runtime_error("cannot write the " + std::string(what) + " " + file.string() +
                             reason) {}
};

// Writes one file. Its constructor throws RecordError if that is sure to fail.
class Recorder : public Observer {
  public:
    // To be called once, after the last event. Throws RecordError if anything could not be written.
    virtual void close(const Ending& ending) = 0;
};

// All that the options ask for.
class Recorders : public Observer {
  public:
    // Throws RecordError.
    explicit Recorders(const Options& options);
    bool any() const { return !recorders_.empty(); }
    // Lines of the daemon's log among them.
    void event(const Event& event) override;
    // Closes every one, and then throws the first RecordError that there was.
    void close(const Ending& ending);

  private:
    std::vector<std::unique_ptr<Recorder>> recorders_;
};

}  // namespace sim
