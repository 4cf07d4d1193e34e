// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/resource_list.h"

#include <algorithm>
#include <new>

void ResourceList::append(const Resource& resource) {
    const std::lock_guard lock(lock_);
    resources_.push_back(resource);
    try {
        first_with_id_.try_emplace(static_cast<uint32_t>(resource->img_id), resource);
    } catch (const std::bad_alloc&) {
        resources_.pop_back();  // what cannot be found is not to be erased either
        throw;
    }
}

// Images are freed outside the lock: that may take a while.
void ResourceList::clear() {
    std::vector<Resource> dropped;
    std::unordered_map<uint32_t, Resource> dropped_index;
    const std::lock_guard lock(lock_);
    dropped.swap(resources_);
    dropped_index.swap(first_with_id_);
}

ResourceList::Resource ResourceList::find(uint32_t image_id) const {
    const std::lock_guard lock(lock_);
    const auto found = first_with_id_.find(image_id);
    return found == first_with_id_.end() ? nullptr : found->second;
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
