// SPDX-License-Identifier: Apache-2.0
#include "sim/chaos/dice.h"

namespace sim {
namespace {

// SplitMix64: each state gives one number, and neighbouring states unlike ones.
uint64_t mixed(uint64_t state) {
    state = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9;
    state = (state ^ (state >> 27)) * 0x94d049bb133111eb;
    return state ^ (state >> 31);
}

constexpr uint64_t kStep = 0x9e3779b97f4a7c15;

}  // namespace

Dice::Dice(uint64_t seed, std::string_view kind, uint64_t occasion) : state_(mixed(seed + kStep)) {
    for (const char c : kind) state_ = mixed(state_ ^ static_cast<uint8_t>(c)) + kStep;
    state_ = mixed(state_ ^ occasion);
}

uint32_t Dice::word() {
    state_ += kStep;
    return static_cast<uint32_t>(mixed(state_) >> 32);
}

uint32_t Dice::below(uint32_t bound) {
    const uint64_t scaled = static_cast<uint64_t>(word()) * bound;
    return static_cast<uint32_t>(scaled >> 32);
}

uint32_t Dice::between(uint32_t lowest, uint32_t highest) {
    return lowest + below(highest - lowest + 1);
}

Bytes Dice::bytes(size_t count) {
    Bytes result(count);
    for (uint8_t& byte : result) byte = static_cast<uint8_t>(word());
    return result;
}

}  // namespace sim
