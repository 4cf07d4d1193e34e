// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "fwupdater/file_bytes.h"

// One image that can be served, or one partition that has none. Everything but `erased` stays as
// it was loaded while the record is in the updater's list; `erased` belongs to the list's lock.
struct marlo_fw_resource {
    // Shared by the records that name the same file: a table may do so as often as it likes.
    using Image = std::shared_ptr<const FileBytes>;

    int32_t img_id = 0;          // by which the co-processor asks for it
    int32_t offset = 0;          // start on the co-processor's flash
    std::string partition_name;  // for people
    std::string image_path;      // below the image directory; empty without an image
    uint32_t size = 0;           // bytes of the image
    int32_t xml_size = 0;        // of the partition on the flash; 0 for the two fixed images
    Image data;                  // the whole image file, or null
    bool erased = false;         // its erase has been asked for in this session
    bool isErasable = false;     // its range is erased before a download
};
