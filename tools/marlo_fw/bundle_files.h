// SPDX-License-Identifier: Apache-2.0
// Where the daemon's absolute paths lead while it looks at a directory of somebody's: this is the
// program's os::open. The daemon finds nothing but what is said here.
#pragma once

#include <sys/stat.h>

#include <string>

namespace marlo_fw {

// The device's directories of firmware, and its files in them.
inline constexpr std::string_view kImageDirectory = "/vendor/firmware_mnt/image/";
inline constexpr std::string_view kFallbackVersionFile =
    "/vendor/firmware_mnt/verinfo/ver_info.txt";

// What the device's kernel says of the platform.
struct PlatformFacts {
    std::string platform = "IDP";
    unsigned subtype = 0;        // up to 99
    std::string dload = "full";  // or "mini"
};

struct Bundle {
    std::string directory;
    std::string fallback_version_file;  // stands for kFallbackVersionFile
    PlatformFacts facts;
};

// From now on the daemon's paths lead to `bundle`. Not while a thread of the daemon runs.
void aim_at(const Bundle& bundle);

// The name that the caller knows `device_path` by; itself where it is none of the bundle's.
std::string name_of(const std::string& device_path);

// Whether the daemon has opened this file since aim_at.
bool was_opened(const struct stat& file);

}  // namespace marlo_fw
