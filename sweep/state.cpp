// SPDX-License-Identifier: Apache-2.0
#include "sweep/state.h"

#include <algorithm>

namespace sweep {
namespace {

// What a finished download leaves behind: its reader; its channel, the two ends of the pipe that
// wakes the reader, and the wakelock's two files.
constexpr int kDownloadThreads = 1;
constexpr int kDownloadDescriptors = 5;

// What could not be opened and is not missed is no loss.
bool is_equal(State state, const State& goal) {
    std::string& descriptors = state.at("descriptors");
    const std::string& most = goal.at("descriptors");
    if (std::stoi(descriptors) < std::stoi(most)) descriptors = most;
    return state == goal;
}

bool has_brought_firmware(const State& state, const State& goal) {
    State got = state;
    State expected = goal;
    if (expected.count("flash") == 0 || expected.at("flash") == "right") return false;
    if (got.at("flash") != "right") return false;
    const auto exceeds = [&](const char* name, int most) {
        return std::stoi(got.at(name)) > std::stoi(expected.at(name)) + most;
    };
    if (exceeds("threads", kDownloadThreads) || exceeds("descriptors", kDownloadDescriptors)) {
        return false;
    }
    for (const char* name : {"flash", "threads", "descriptors"}) {
        got.erase(name);
        expected.erase(name);
    }
    return got == expected;
}

}  // namespace

std::string text_of(const State& state) {
    std::string text;
    for (const auto& [name, value] : state) {
        if (!text.empty()) text += ", ";
        text.append(name).append(" ").append(value);
    }
    return text;
}

void remove(std::vector<State>& states, const std::string& name) {
    for (State& state : states) state.erase(name);
}

bool is_as_good_as(const State& state, const std::vector<State>& goals) {
    return std::any_of(goals.begin(), goals.end(), [&state](const State& goal) {
        return is_equal(state, goal) || has_brought_firmware(state, goal);
    });
}

}  // namespace sweep
