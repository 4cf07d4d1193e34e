// SPDX-License-Identifier: Apache-2.0
// The files that a device ships, below the root: those that the user gave, or generated ones.
#pragma once

#include "sim/firmware_bundle.h"
#include "sim/options.h"
#include "sim/root.h"
#include "sim/scenario.h"

namespace sim {

// Puts the image directory and the version file in their places; the result is what the
// co-processor is to be given of it. What is odd in the user's images is noted on standard error.
// Throws FirmwareError, or std::runtime_error if the scenario cannot be had with the user's images.
FirmwareBundle provide_firmware(const Root& root, const Options& options, const Start& start);

// Puts the misc data in its place; the result is what the co-processor is to be given, by type.
// Throws FirmwareError for files that are too big.
MiscFiles provide_misc_data(const Root& root, const Options& options);

}  // namespace sim
