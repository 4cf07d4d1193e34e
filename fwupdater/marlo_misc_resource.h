// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "fwupdater/file_bytes.h"

// The kind of a misc-data resource, as the co-processor is told it.
enum Offload_Type : uint16_t {
    OFFLOAD_BTFW = 0,  // Bluetooth firmware
    OFFLOAD_NV = 1,    // Bluetooth non-volatile settings
};

// The files that are pushed, in the order of their paths.
inline const std::map<std::string, Offload_Type> misc_file_types = {
    {"/vendor/bt_firmware/image/mrbtfw20.mbn", OFFLOAD_BTFW},
    {"/vendor/bt_firmware/image/mrnv20.bin", OFFLOAD_NV},
};

// One file that was read. Stays as it was loaded.
struct marlo_misc_resource {
    uint32_t index = 0;  // among the files of one loading that could be read, from 0
    uint16_t type = 0;   // an Offload_Type
    std::string path;    // absolute
    uint32_t size = 0;   // bytes in `data`
    FileBytes data;      // the whole file
};
