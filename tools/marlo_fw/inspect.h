// SPDX-License-Identifier: Apache-2.0
// What the daemon would load, erase and serve from an image directory.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/marlo_fw/boot_loader.h"
#include "tools/marlo_fw/bundle_files.h"
#include "tools/marlo_fw/daemon_run.h"
#include "tools/marlo_fw/image_check.h"
#include "tools/marlo_fw/version_check.h"

namespace marlo_fw {

struct Inspection {
    Bundle bundle;
    std::vector<ImageRow> images;
    uint64_t bytes_erased = 0;
    bool update_begins = false;
    std::optional<BootLoader> boot_loader;
    std::optional<uint32_t> flash_file_crc;  // of flash.bin as it is, before the block is filled in
    Versions versions;
    Findings findings;
    std::shared_ptr<DaemonRun> run;  // with everything loaded
};

inline constexpr uint32_t kFlashImageId = 1;

// What the co-processor is served as its flash image: flash.bin, or the partition whose id hides
// it. Null where nothing was loaded.
const ImageRow* flash_image(const Inspection& inspection);

// Throws Failure where the directory cannot be looked at.
void check_directory(const std::string& directory);
Inspection inspect(const Bundle& bundle);

}  // namespace marlo_fw
