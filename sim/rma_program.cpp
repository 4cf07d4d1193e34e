// SPDX-License-Identifier: Apache-2.0
#include "sim/rma_program.h"

#include <algorithm>
#include <random>

namespace sim {

namespace {

// The engine's numbers are the same everywhere; those of the library's distributions are not.
using Random = std::mt19937;

Bytes random_bytes(Random& random, size_t count) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() >> 24);
    return bytes;
}

void append(std::vector<RmaStep>& steps, const std::vector<RmaStep>& more) {
    steps.insert(steps.end(), more.begin(), more.end());
}

// The pieces into which a partition is cut, as reads; the last one is what remains.
std::vector<RmaStep> blocks(const RmaPartition& partition, size_t index) {
    std::vector<RmaStep> steps;
    for (uint32_t at = 0; at < partition.size; at += partition.block_size) {
        const uint32_t size = std::min(partition.block_size, partition.size - at);
        steps.push_back({RmaStep::kRead, index, at, size});
    }
    return steps;
}

std::vector<RmaStep> write_all(const RmaPartition& partition, size_t index, Random& random) {
    std::vector<RmaStep> steps = blocks(partition, index);
    for (RmaStep& step : steps) {
        step.kind = RmaStep::kWrite;
        step.data = random_bytes(random, step.size);
    }
    return steps;
}

// Writes and reads at and beyond the end of a partition.
std::vector<RmaStep> at_the_end(const RmaPartition& partition, size_t index, Random& random) {
    const uint32_t size = partition.size;
    const uint32_t some = std::min(size, uint32_t{100});
    const auto write = [&](uint32_t offset, uint32_t count) {
        return RmaStep{RmaStep::kWrite, index, offset, 0, random_bytes(random, count)};
    };
    return {write(size - some, some),
            write(size - some + 1, some),
            write(size, 1),
            write(size + 1, 1),
            write(UINT32_MAX, 2),
            {RmaStep::kRead, index, size - some, 2 * some},
            {RmaStep::kRead, index, size + 1, some}};
}

RmaProgram short_program() {
    Random random(1);
    RmaProgram program;
    program.partitions = {{101, 70, 10000, 4096},
                          {4294967280, 71, 1, 1},
                          {205, 72, 4219, 333},
                          {306, 73, 8192, 4096}};
    std::vector<RmaStep>& steps = program.steps;
    for (size_t i = 0; i < program.partitions.size(); ++i) {
        const RmaPartition& partition = program.partitions[i];
        steps.push_back({RmaStep::kConnect, i});
        append(steps, read_all(program, i));
        append(steps, write_all(partition, i, random));
        append(steps, read_all(program, i));
        append(steps, at_the_end(partition, i, random));
        steps.push_back({RmaStep::kWrite, i, 0, 0, random_bytes(random, 1), true});
    }
    for (size_t i = 0; i < program.partitions.size(); ++i) {
        steps.push_back({RmaStep::kConnect, i});
        append(steps, read_all(program, i));
    }
    for (size_t i = 0; i < program.partitions.size(); ++i) {
        steps.push_back({RmaStep::kDisconnect, i});
    }
    // The one that was connected last, once more.
    append(steps, read_all(program, program.partitions.size() - 1));
    return program;
}

RmaProgram long_program() {
    constexpr uint32_t kBlock = 4096;
    constexpr uint32_t kSize = 16 * kBlock;
    constexpr int kRandomSteps = 400;
    Random random(2);
    RmaProgram program;
    std::vector<RmaStep>& steps = program.steps;
    for (uint32_t i = 0; i < 8; ++i) {
        program.partitions.push_back({100 + i, 40, kSize, kBlock});
        steps.push_back({RmaStep::kConnect, i});
    }
    for (int i = 0; i < kRandomSteps; ++i) {
        const size_t partition = random() % program.partitions.size();
        const auto offset = static_cast<uint32_t>(random() % (kSize - kBlock + 1));
        if (random() % 2) {
            steps.push_back({RmaStep::kRead, partition, offset, kBlock});
        } else {
            steps.push_back({RmaStep::kWrite, partition, offset, 0, random_bytes(random, kBlock)});
        }
    }
    for (size_t i = 0; i < program.partitions.size(); ++i) {
        append(steps, read_all(program, i));
        steps.push_back({RmaStep::kDisconnect, i});
    }
    return program;
}

}  // namespace

RmaProgram rma_program(RmaLength length) {
    return length == RmaLength::kShort ? short_program() : long_program();
}

std::vector<RmaStep> read_all(const RmaProgram& program, size_t partition) {
    return blocks(program.partitions[partition], partition);
}

}  // namespace sim
