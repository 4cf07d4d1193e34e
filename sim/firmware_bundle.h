// SPDX-License-Identifier: Apache-2.0
// What the co-processor must have in its flash after an update, read from an image directory
// without any help of the daemon's code.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace sim {

// An image directory that no update can be judged with; what() names the file and the value.
class FirmwareError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The text of the sysfs files that the daemon patches into flash.bin, newline included.
struct PlatformFacts {
    std::string hw_platform = "IDP\n";          // /sys/devices/soc0/hw_platform
    std::string platform_subtype = "0\n";       // /sys/devices/soc0/platform_subtype_id
    std::string download_mode = "full mini\n";  // /sys/kernel/dload/dload_mode
};

// The texts of the version file; empty where it has none.
struct ShippedVersions {
    std::string apps;
    std::string dsp;
    std::string bt;
};

// A range of the flash that the host is told to erase.
struct EraseRange {
    std::string name;
    uint32_t offset;
    uint32_t size;  // never 0; offset + size is at most 2^32
};

struct Image {
    uint32_t id;
    std::string name;
    std::vector<uint8_t> data;  // as the host must serve it: flash.bin with the platform block
    bool in_table;              // false: the fixed images, whose place the table does not tell
    uint32_t offset;            // start in the flash; 0 unless in_table
};

struct FirmwareBundle {
    std::vector<EraseRange> erase_ranges;  // in the order of the table
    std::vector<Image> images;             // in the order in which they are asked for; ids differ
    ShippedVersions versions;
    std::vector<std::string> notes;  // what is served otherwise than the table seems to say

    // Reads partition_table.xml, the images and the version file (or, if the directory has none,
    // `fallback_version_file`). Throws FirmwareError.
    static FirmwareBundle load(const std::filesystem::path& image_directory,
                               const std::filesystem::path& fallback_version_file,
                               const PlatformFacts& facts);

    uint64_t bytes_to_erase() const;
    uint64_t bytes_to_write() const;
};

}  // namespace sim
