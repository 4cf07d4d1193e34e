// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include "sim/device.h"

namespace sim {

// The memory of another process. It needs no privilege for a child of this process.
class ProcessMemory : public UserMemory {
  public:
    // `thread`: any thread of the process.
    explicit ProcessMemory(pid_t thread) : thread_(thread) {}
    bool read(uint32_t address, std::span<uint8_t> into) override;
    bool write(uint32_t address, std::span<const uint8_t> from) override;

  private:
    pid_t thread_;
};

}  // namespace sim
