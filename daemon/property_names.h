// SPDX-License-Identifier: Apache-2.0
#pragma once

// System properties that more than one file of the daemon's core writes.

// "1" while the co-processor is up: the version query waits for it.
inline constexpr const char* kBootCompleteProperty = "vendor.marlo.boot_complete";

// "1" when the misc data have been pushed since the last power-up of the variant without flash.
inline constexpr const char* kMiscUpdateProperty = "vendor.zt_aon.misc_update";
