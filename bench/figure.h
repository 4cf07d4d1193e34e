// SPDX-License-Identifier: Apache-2.0
// What a benchmark finds: figures, beside what they are compared with and what they should reach.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace bench {

// What is asked of a figure: of its ratio to the reference, or of its value where it has none.
struct Goal {
    enum class Side { kAtLeast, kAtMost };
    Side side = Side::kAtLeast;
    double limit = 0;
};
constexpr Goal at_least(double limit) {
    return {Goal::Side::kAtLeast, limit};
}
constexpr Goal at_most(double limit) {
    return {Goal::Side::kAtMost, limit};
}

// The same quantity of somebody else, measured in turn with ours.
struct Reference {
    std::string name;
    double value = 0;  // in the figure's unit
    double ratio = 0;  // ours divided by it: the median over the rounds, not of the medians
};

struct Figure {
    std::string group;  // as it is asked for on the command line
    std::string name;
    std::string unit;
    double value = 0;
    std::optional<Reference> reference = {};
    std::optional<Goal> goal = {};
};

// What the goal is asked of.
double judged_value(const Figure& figure);
bool is_met(const Figure& figure);  // true without a goal

using Figures = std::vector<Figure>;

// One line per figure, each group under its name.
std::string table_of(const Figures& figures);
// The same for programs: an array of objects.
std::string json_of(const Figures& figures);

}  // namespace bench
