// SPDX-License-Identifier: Apache-2.0
#include "bench/rounds.h"

#include <algorithm>

namespace bench {

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double median_of(const Effort& effort, const std::function<double()>& measure) {
    measure();
    std::vector<double> values;
    values.reserve(static_cast<size_t>(effort.rounds));
    for (int round = 0; round < effort.rounds; ++round) {
        values.push_back(measure());
    }
    return median(std::move(values));
}

Pair pair_from(const std::vector<double>& ours, const std::vector<double>& theirs) {
    std::vector<double> ratios;
    ratios.reserve(ours.size());
    for (size_t round = 0; round < ours.size(); ++round) {
        ratios.push_back(ours[round] / theirs[round]);
    }
    return {median(ours), median(theirs), median(std::move(ratios))};
}

Pair pair_of(const Effort& effort, const std::function<double()>& ours,
             const std::function<double()>& theirs) {
    ours();
    theirs();
    std::vector<double> our_values;
    std::vector<double> their_values;
    for (int round = 0; round < effort.rounds; ++round) {
        our_values.push_back(ours());
        their_values.push_back(theirs());
    }
    return pair_from(our_values, their_values);
}

}  // namespace bench
