// SPDX-License-Identifier: Apache-2.0
// The images that the daemon has loaded: whether each can be served, and where it belongs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/marlo_fw/finding.h"

namespace marlo_fw {

struct ImageRow {
    std::string place;  // for people: where the table says so
    uint32_t id = 0;
    std::string name;
    uint32_t offset = 0;  // on the flash
    uint32_t size = 0;    // of the partition; 0 for the two fixed images
    bool is_fixed = false;
    bool is_erased = false;  // before the download
    std::string file;        // below the image directory; empty without an image
    uint32_t bytes = 0;
    uint32_t crc = 0;                 // as served
    bool is_served = false;           // when the co-processor asks for the id
    std::vector<std::string> errors;  // what the daemon logs when it reads the file
};

void check_images(const std::vector<ImageRow>& rows, Findings& findings);

}  // namespace marlo_fw
