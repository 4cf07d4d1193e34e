// SPDX-License-Identifier: Apache-2.0
// The version file as the host must read it: lines of "key": "value".
#pragma once

#include <string>

#include "sim/firmware_bundle.h"

namespace sim {

// `file` names it in the message of the FirmwareError thrown for a line above 64 KiB.
ShippedVersions read_versions(const std::string& text, const std::string& file);

}  // namespace sim
