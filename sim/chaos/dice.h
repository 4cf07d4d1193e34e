// SPDX-License-Identifier: Apache-2.0
// Random choices that can be made again: they depend on a seed and on the occasion, never on the
// time or on what other parts have chosen meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "sim/observer.h"

namespace sim {

// The choices of one occasion: the `occasion`-th of its `kind`.
class Dice {
  public:
    Dice(uint64_t seed, std::string_view kind, uint64_t occasion);

    uint32_t word();
    uint32_t below(uint32_t bound);                       // 0 to bound - 1; the bound is not 0
    uint32_t between(uint32_t lowest, uint32_t highest);  // both included
    bool percent(uint32_t chance) { return below(100) < chance; }
    bool one_in(uint32_t count) { return below(count) == 0; }
    Bytes bytes(size_t count);
    template <typename Value, size_t count>
    const Value& one_of(const Value (&values)[count]) {
        return values[below(count)];
    }

  private:
    uint64_t state_;
};

// Counts the occasions of each kind.
class DiceBox {
  public:
    explicit DiceBox(uint64_t seed) : seed_(seed) {}
    // For the next occasion of this kind, "rma packet" say.
    Dice roll(const std::string& kind) {
        return {seed_, kind + " " + std::to_string(chapter_), ++occasions_[kind]};
    }
    // Counts from one again: how much there was before makes no difference to what comes.
    void begin_chapter(uint64_t number) {
        chapter_ = number;
        occasions_.clear();
    }

  private:
    uint64_t seed_;
    uint64_t chapter_ = 0;
    std::map<std::string, uint64_t> occasions_;  // so far
};

}  // namespace sim
