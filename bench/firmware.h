// SPDX-License-Identifier: Apache-2.0
// What the daemon's code finds in this process while it is measured.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "bench/temporary_directory.h"

namespace bench {

// From now on each log line is made, handed to a logger by liblog and dropped, and wakelock files
// take what is written to them and do nothing (/dev/null). To be called before the daemon's code.
void prepare_daemon();

inline constexpr uint32_t kServedImage = 1'000'000;

// A firmware directory of its own, which the daemon's code takes for the device's: a table of
// `partitions` partitions, of which the last has the id kServedImage and the image `served`. What
// is loaded from it stays valid when it is gone. Throws std::runtime_error.
class Firmware {
  public:
    Firmware(std::span<const uint8_t> served, int partitions);

  private:
    TemporaryDirectory directory_;
};

// Bytes that neither repeat soon nor compress.
std::vector<uint8_t> made_up_image(size_t size);

}  // namespace bench
