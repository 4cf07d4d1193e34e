// SPDX-License-Identifier: Apache-2.0
// Measuring in turns: ours, theirs, ours, theirs; what disturbs the machine then disturbs both.
#pragma once

#include <functional>
#include <vector>

#include "bench/figure.h"

namespace bench {

// How much time a run of the benchmarks may take.
struct Effort {
    int rounds = 7;         // of which the median counts
    bool is_quick = false;  // one round of the smallest sizes: shows that it works, not how fast
};

double median(std::vector<double> values);

// The median of `measure` over the rounds, after one that does not count.
double median_of(const Effort& effort, const std::function<double()>& measure);

struct Pair {
    double ours = 0;    // median
    double theirs = 0;  // median
    double ratio = 0;   // median of the rounds' ratios
};

// From as many values of both, those of one round at the same place.
Pair pair_from(const std::vector<double>& ours, const std::vector<double>& theirs);

// Both measured once per round, one after the other, after a round that does not count.
Pair pair_of(const Effort& effort, const std::function<double()>& ours,
             const std::function<double()>& theirs);

inline Reference reference(std::string name, const Pair& pair) {
    return {std::move(name), pair.theirs, pair.ratio};
}

}  // namespace bench
