// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

// Memory that the control device can be pointed at. The words of its request block are 32 bits
// wide, so on a 64-bit build an ordinary pointer does not fit: this memory lies below 4 GiB.
class DeviceMemory {
  public:
    // `size` zeroed bytes, at most a page. valid() is false where there are none.
    explicit DeviceMemory(size_t size);
    ~DeviceMemory();
    DeviceMemory(const DeviceMemory&) = delete;
    DeviceMemory& operator=(const DeviceMemory&) = delete;

    bool valid() const { return memory_ != nullptr; }
    void* data() const { return memory_; }
    uint32_t address() const;  // of data(), as the request block's words hold it

  private:
    size_t size_;
    void* memory_;
};
