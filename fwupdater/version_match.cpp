// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/version_match.h"

#include <cstring>
#include <string_view>

namespace {

template <size_t kSize>
std::string_view text_of(const char (&field)[kSize]) {
    return {field, strnlen(field, kSize)};
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

bool passes_or_is_empty(std::string_view running, std::string_view shipped) {
    return running.empty() || contains(running, shipped);
}

}  // namespace

VersionMismatch first_mismatch(const wear_firmware_info_t& running,
                               const marlo_meta_info& shipped) {
    if (!contains(text_of(running.apps_version), shipped.apps_cochip)) {
        return VersionMismatch::apps;
    }
    if (!passes_or_is_empty(text_of(running.bt_version), shipped.btfw_cochip)) {
        return VersionMismatch::bt;
    }
    if (!passes_or_is_empty(text_of(running.dsp_version), shipped.dsp_cochip)) {
        return VersionMismatch::dsp;
    }
    return VersionMismatch::none;
}

bool names_no_flash_variant(const wear_firmware_info_t& running) {
    return contains(text_of(running.apps_version), "NOFLASH_PSRAM");
}
