// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/resource_list.h"

#include <algorithm>
#include <utility>

void ResourceList::append(Resource resource) {
    const std::lock_guard lock(lock_);
    resources_.push_back(std::move(resource));
}

// Images are freed outside the lock: that may take a while.
void ResourceList::clear() {
    std::vector<Resource> dropped;
    const std::lock_guard lock(lock_);
    dropped.swap(resources_);
}

ResourceList::Resource ResourceList::find(uint32_t image_id) const {
    const std::lock_guard lock(lock_);
    const auto found =
        std::find_if(resources_.begin(), resources_.end(), [image_id](const Resource& resource) {
            return static_cast<uint32_t>(resource->img_id) == image_id;
        });
    return found == resources_.end() ? nullptr : *found;
}

ResourceList::Resource ResourceList::take_next_to_erase() {
    const std::lock_guard lock(lock_);
    const auto found =
        std::find_if(resources_.begin(), resources_.end(), [](const Resource& resource) {
            return !resource->erased && resource->isErasable && resource->xml_size != 0;
        });
    if (found == resources_.end()) {
        return nullptr;
    }
    (*found)->erased = true;
    return *found;
}
