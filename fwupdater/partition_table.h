// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The partition table, an XML file:
//
//   <any root>
//     <mbr> <Partition_1_SBL_Offset/> </mbr>
//     <Bank_1>
//       <Partition_table>
//         <no_of_partitions/>
//         <Partition>
//           <Offset/> <img_id/> <Partition_Name/> <Image_Path/> <size/>
//           <HostSpecificInfo> <PartType/> </HostSpecificInfo>
//         </Partition>
//         ... more of them
//
// Element names are compared exactly; of several elements of one name, except Partition, the first
// counts. A number that cannot be read is 0, a text that is empty is an empty string. No function
// here logs or opens anything.

// The children that one "Partition" element has.
struct PartitionElement {
    std::optional<int32_t> offset;
    std::optional<int32_t> img_id;
    std::optional<std::string> partition_name;
    std::optional<std::string> image_path;
    std::optional<int32_t> size;
    std::optional<int32_t> part_type;
};

// The values that hold for a partition: a child that is absent leaves the value of the partition
// before it, except that every partition says anew whether it can be erased.
struct PartitionValues {
    int32_t img_id = 0;
    int32_t offset = 0;          // on the co-processor's flash
    std::string partition_name;  // for people
    std::string image_path;      // below the firmware image directory; empty: no image
    int32_t xml_size = 0;        // of the partition, in bytes
    bool is_erasable = false;

    void carry_over(const PartitionElement& element);
};

struct PartitionTable {
    bool has_root = false;
    bool has_mbr = false;
    std::optional<int32_t> boot_loader_offset;  // Partition_1_SBL_Offset: bytes into flash.bin
    bool has_bank = false;
    bool has_table = false;
    std::optional<std::string> no_of_partitions;  // only shown; does not bound the list
    std::vector<PartitionElement> partitions;     // in document order
};

// Nothing where the bytes are not an XML document; `why` says where and how then. Throws
// std::bad_alloc.
std::optional<PartitionTable> parse_partition_table(std::span<const uint8_t> xml, std::string* why);
