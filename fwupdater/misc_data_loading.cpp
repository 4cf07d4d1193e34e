// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/misc_data_loading.h"

#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/image_file.h"
#include "fwupdater/marlo_fw_updater.h"

namespace {

// The operation in whose name its steps log.
constexpr const char* kLoading = "loadAndSaveMiscFw";

}  // namespace

MiscResources load_misc_resources(const std::map<std::string, Offload_Type>& table) {
    MiscResources resources;
    for (const auto& [path, type] : table) {
        std::optional<FileBytes> bytes = read_logged_image(path, kLoading);
        if (!bytes) {
            continue;
        }
        auto resource = std::make_shared<marlo_misc_resource>();
        resource->index = static_cast<uint32_t>(resources.size());
        resource->type = type;
        resource->path = path;
        resource->data = *std::move(bytes);
        resource->size = static_cast<uint32_t>(resource->data.size());
        MARLO_LOG_FOR(kLoading, debug, "marlo_misc_resource : %d",
                      static_cast<int>(resource->size));
        resources.push_back(std::move(resource));
    }
    MARLO_LOG_FOR(kLoading, debug, "Get And Save Misc Fw Done.");
    return resources;
}

uint32_t marlo_fw_updater::loadAndSaveMiscFw() {
    MiscResources loaded = load_misc_resources(misc_file_types);
    const std::lock_guard lock(misc_resources_lock_);
    misc_resources.insert(misc_resources.end(), loaded.begin(), loaded.end());
    return 1;
}

// Resources are freed outside the lock: that may take a while.
int marlo_fw_updater::truncateMiscFwResources() {
    MiscResources dropped;
    const std::lock_guard lock(misc_resources_lock_);
    dropped.swap(misc_resources);
    return 0;
}
