// SPDX-License-Identifier: Apache-2.0
// The boot loader inside flash.bin, and the block in it that the daemon fills in.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "fwupdater/platform_info.h"
#include "tools/marlo_fw/finding.h"

namespace marlo_fw {

struct BootLoader {
    bool found = false;
    bool is_64_bit = false;
    int32_t offset = 0;            // of its ELF image in flash.bin
    std::vector<uint64_t> blocks;  // where the daemon writes: offsets in flash.bin
    platform_info written;         // and what
};

// `flash`: the file's bytes, before the daemon has filled anything in. `offset`: where the table
// says that the ELF image is.
BootLoader check_boot_loader(std::span<const uint8_t> flash, int32_t offset,
                             const platform_info& written, Findings& findings);

}  // namespace marlo_fw
