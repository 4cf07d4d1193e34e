// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/platform_info.h"

#include <cstdlib>
#include <string>

#include "wire/little_endian.h"

platform_info platform_info::read_from(std::span<const uint8_t> image, size_t offset) {
    platform_info info;
    info.debug_policy = wire::word_at(image, offset);
    info.platform_id = wire::word_at(image, offset + 4);
    info.major_id = wire::word_at(image, offset + 8);
    info.minor_id = wire::word_at(image, offset + 12);
    info.sub_type = wire::word_at(image, offset + 16);
    return info;
}

bool platform_info::write_to(std::span<uint8_t> image, size_t offset) const {
    if (offset > image.size() || kSize > image.size() - offset) {
        return false;
    }
    wire::put_word_at(image, offset, debug_policy);
    wire::put_word_at(image, offset + 4, platform_id);
    wire::put_word_at(image, offset + 8, major_id);
    wire::put_word_at(image, offset + 12, minor_id);
    wire::put_word_at(image, offset + 16, sub_type);
    return true;
}

uint32_t platform_id_of(std::string_view hardware_platform) {
    return hardware_platform.starts_with("WDP") ? 0x24 : 0x22;
}

uint32_t sub_type_of(std::string_view subtype_id) {
    return static_cast<uint32_t>(std::atoi(std::string(subtype_id).c_str()));
}

bool is_mini_dump_mode(std::string_view download_mode) {
    return download_mode.find("mini") != std::string_view::npos;
}
