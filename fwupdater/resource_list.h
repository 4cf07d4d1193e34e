// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "fwupdater/marlo_fw_resource.h"

// The images of a session, in load order. The thread that starts a session fills the list, the
// reader thread serves from it, and either may empty it: the list has a lock of its own, which is
// held only inside these functions. What a function returns stays alive while it is held, though
// the list may be emptied meanwhile.
class ResourceList {
  public:
    using Resource = std::shared_ptr<marlo_fw_resource>;

    void append(const Resource& resource);
    void clear();

    // The first record with this id; null when there is none. Takes the same time however many
    // there are: it is looked up once per fragment.
    Resource find(uint32_t image_id) const;

    // The first erasable record of some size that was not handed out before, marked as erased
    // before anybody else can see it: its answer may arrive while the request is still on its way
    // out of another thread. Null when there is none.
    Resource take_next_to_erase();

  private:
    mutable std::mutex lock_;
    std::vector<Resource> resources_;
    std::unordered_map<uint32_t, Resource> first_with_id_;
};
