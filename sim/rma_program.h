// SPDX-License-Identifier: Apache-2.0
// What the co-processor does with its memory on the host, as a list of steps.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/behaviour.h"
#include "sim/observer.h"

namespace sim {

// A piece of memory that the host keeps for the co-processor. The ids are chosen so that the names
// of all partitions' files differ.
struct RmaPartition {
    uint32_t memory_id;
    uint32_t second_id;
    uint32_t size;        // bytes
    uint32_t block_size;  // bytes read or written at a time
};

struct RmaStep {
    enum Kind { kConnect, kDisconnect, kRead, kWrite };
    Kind kind;
    size_t partition;  // its index
    uint32_t offset = 0;
    uint32_t size = 0;        // bytes to read
    Bytes data = {};          // to write
    bool other_word = false;  // the write carries a word that names a file which does not exist
};

struct RmaProgram {
    std::vector<RmaPartition> partitions;
    std::vector<RmaStep> steps;
};

// The same on every machine and in every run.
RmaProgram rma_program(RmaLength length);

// Steps that read a partition from its first byte to its last, block by block.
std::vector<RmaStep> read_all(const RmaProgram& program, size_t partition);

}  // namespace sim
