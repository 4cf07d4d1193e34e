// SPDX-License-Identifier: Apache-2.0
#include "sim/firmware_bundle.h"

namespace sim {

uint64_t FirmwareBundle::bytes_to_erase() const {
    uint64_t total = 0;
    for (const EraseRange& range : erase_ranges) total += range.size;
    return total;
}

uint64_t FirmwareBundle::bytes_to_write() const {
    uint64_t total = 0;
    for (const Image& image : images) total += image.data.size();
    return total;
}

}  // namespace sim
