// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// The version record, 308 bytes, as the co-processor's kernel driver writes it into the caller's
// reply buffer. Each text is NUL-terminated; whoever receives a record from the device terminates
// the three texts at their last byte before anybody reads them.
struct wear_firmware_info_t {
    uint32_t first_word;    // not interpreted
    uint32_t kapi_version;  // major in bits 31-24, minor in bits 23-16, patch in bits 15-0
    char
        apps_version[100];  // application build; holds "NOFLASH_PSRAM" on the variant without flash
    char dsp_version[100];
    char bt_version[100];
};

static_assert(sizeof(wear_firmware_info_t) == 308 && alignof(wear_firmware_info_t) == 4);
static_assert(std::is_same_v<decltype(wear_firmware_info_t::first_word), uint32_t>);
static_assert(std::is_same_v<decltype(wear_firmware_info_t::kapi_version), uint32_t>);
static_assert(offsetof(wear_firmware_info_t, kapi_version) == 4);
static_assert(offsetof(wear_firmware_info_t, apps_version) == 8);
static_assert(offsetof(wear_firmware_info_t, dsp_version) == 108);
static_assert(offsetof(wear_firmware_info_t, bt_version) == 208);
