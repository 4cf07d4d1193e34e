// SPDX-License-Identifier: Apache-2.0
#include "comhandler/device_memory.h"

#include "platform/os.h"

DeviceMemory::DeviceMemory(size_t size) : size_(size), memory_(os::map_below_4gib(size)) {}

DeviceMemory::~DeviceMemory() {
    if (memory_ != nullptr) {
        os::unmap(memory_, size_);
    }
}

uint32_t DeviceMemory::address() const {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(memory_));
}
