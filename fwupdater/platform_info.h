// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// The block in the co-processor's flash image that tells its boot loader which host it runs beside
// and which debug policy applies. It is shipped unfilled.

// Virtual address of the boot loader's segment that holds the block.
inline constexpr uint64_t kDebugPolicyAddress = 0x20147FA4;

// The block: five words, in this order.
struct platform_info {
    uint32_t debug_policy = 0;  // 1: the host takes small ("mini") memory dumps
    uint32_t platform_id = 0x22;
    uint32_t major_id = 0xFFFFFFFF;  // never known to the host
    uint32_t minor_id = 0xFFFFFFFF;  // never known to the host
    uint32_t sub_type = 0;

    static constexpr size_t kSize = 20;

    static platform_info read_from(std::span<const uint8_t> image, size_t offset);

    // False, and nothing written, where the block would not lie inside the image.
    bool write_to(std::span<uint8_t> image, size_t offset) const;
};

// What the kernel's texts say. Texts end at their first NUL.
uint32_t platform_id_of(std::string_view hardware_platform);  // "WDP..." 0x24, others 0x22
uint32_t sub_type_of(std::string_view subtype_id);            // decimal; no number: 0
bool is_mini_dump_mode(std::string_view download_mode);       // "mini" wins over "full"
