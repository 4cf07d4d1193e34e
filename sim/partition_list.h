// SPDX-License-Identifier: Apache-2.0
// The partition table file as the host must read it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct Partition {
    uint32_t id;
    uint32_t offset;
    uint32_t size;
    std::string name;
    std::string image_path;  // below the image directory; empty: no image
    bool erasable;
};

struct PartitionList {
    int32_t elf_offset = 0;  // of the boot loader in flash.bin
    // In document order. A value that an element leaves out is that of the element before.
    std::vector<Partition> partitions;
};

// Throws FirmwareError for a text that is no such table; `file` names it in the message.
PartitionList read_partition_list(const std::string& xml, const std::string& file);

}  // namespace sim
