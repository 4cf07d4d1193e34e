// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "comhandler/wear_firmware_info.h"
#include "fwupdater/version_line.h"

// The tests that decide on an update, in their order.
enum class VersionMismatch { none, apps, bt, dsp };

// The first test that fails. A running version passes where it contains the shipped one; of
// Bluetooth and DSP also where it is empty.
VersionMismatch first_mismatch(const wear_firmware_info_t& running, const marlo_meta_info& shipped);

// Whether it is the variant that has no flash and runs from PSRAM.
bool names_no_flash_variant(const wear_firmware_info_t& running);
