// SPDX-License-Identifier: Apache-2.0
// Generated firmware: an image directory that looks like a shipped one, always the same bytes.
#pragma once

#include <filesystem>

namespace sim {

// Writes partition_table.xml, flash.bin, partition_1.bin, further images and the version file
// tbx7700_ver_info.txt into `directory`, which exists. Throws std::runtime_error naming the file
// that could not be written.
void generate_images(const std::filesystem::path& directory);

// Writes the files that a co-processor without flash is given: one that takes many packets, the
// last of which is one byte longer than the others, and one that fits into a single packet.
void generate_misc_data(const std::filesystem::path& directory);

// Writes the version file that is read where the image directory has none.
void generate_version_file(const std::filesystem::path& file);

}  // namespace sim
