// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One image that can be served, or one partition that has none. Everything but `erased` stays as
// it was loaded while the record is in the updater's list; `erased` belongs to the list's lock.
struct marlo_fw_resource {
    int32_t img_id = 0;          // by which the co-processor asks for it
    int32_t offset = 0;          // start on the co-processor's flash
    std::string partition_name;  // for people
    std::string image_path;      // below the image directory; empty without an image
    uint32_t size = 0;           // bytes in `data`
    int32_t xml_size = 0;        // of the partition on the flash; 0 for the two fixed images
    std::vector<uint8_t> data;   // the whole image file
    bool erased = false;         // its erase has been asked for in this session
    bool isErasable = false;     // its range is erased before a download
};
