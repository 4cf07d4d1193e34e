// SPDX-License-Identifier: Apache-2.0
// Whether the firmware that runs is the firmware that ships.
#include <algorithm>
#include <new>
#include <string>
#include <string_view>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/image_file.h"
#include "fwupdater/marlo_fw_updater.h"
#include "fwupdater/version_match.h"
#include "platform/os.h"

namespace {

// The second is read only where the first cannot be opened.
constexpr const char* kVersionFiles[] = {"/vendor/firmware_mnt/image/tbx7700_ver_info.txt",
                                         "/vendor/firmware_mnt/verinfo/ver_info.txt"};

// Longer lines are read all the same; but that is no version file as any build makes it.
constexpr size_t kLongestLine = 4096;

void log_overlong_lines(std::string_view text, const char* path) {
    for (size_t begin = 0; begin < text.size();) {
        const size_t length = std::min(text.find('\n', begin), text.size()) - begin;
        if (length > kLongestLine) {
            MARLO_LOG(error, "%s has a line of %zu bytes", path, length);
        }
        begin += length + 1;
    }
}

marlo_meta_info parse(const FileBytes& bytes, const char* path) {
    try {
        const std::string text(bytes.begin(), bytes.end());
        log_overlong_lines(text, path);
        return parse_version_file(text);
    } catch (const std::bad_alloc&) {
        MARLO_LOG(error, "no memory for the versions in %s", path);
        return {};
    }
}

bool is_known(const wear_firmware_info_t* fw_info, const char* function) {
    if (fw_info == nullptr) {
        MARLO_LOG_FOR(function, error, "fw_info: version is invalid");
    }
    return fw_info != nullptr;
}

}  // namespace

marlo_meta_info marlo_fw_updater::readMarloMetaBuildInfo() {
    for (const char* path : kVersionFiles) {
        const int fd = os::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        MARLO_LOG(debug, "aon build from %s.\n", path);
        const auto bytes = read_regular_file(fd, path, kLargestText);
        os::close(fd);
        // A file that is there and says nothing counts: the other one may be of another build.
        return bytes ? parse(*bytes, path) : marlo_meta_info{};
    }
    return {};
}

int32_t marlo_fw_updater::fw_version_check(wear_firmware_info_t* fw_info) {
    const marlo_meta_info shipped = readMarloMetaBuildInfo();
    if (!is_known(fw_info, __func__)) {
        return -1;
    }
    switch (first_mismatch(*fw_info, shipped)) {
        case VersionMismatch::apps:
            MARLO_LOG(error, "crm_build_number MIS-MATHCHED");
            return -1;
        case VersionMismatch::bt:
            MARLO_LOG(error, "btfw_cochip MIS-MATHCHED");
            return -1;
        case VersionMismatch::dsp:
            MARLO_LOG(error, "dsp_cochip MIS-MATHCHED");
            return -1;
        case VersionMismatch::none:
            break;
    }
    MARLO_LOG(error, "Marlo firmware versions are MATHCHED, skip fw_update");
    return 0;
}

int32_t marlo_fw_updater::is_psram_noflash(wear_firmware_info_t* fw_info) {
    if (!is_known(fw_info, __func__)) {
        return -1;
    }
    if (names_no_flash_variant(*fw_info)) {
        MARLO_LOG(debug, "Found NOFLASH_PSRAM variant");
        return 0;
    }
    MARLO_LOG(debug, "Not a NOFLASH_PSRAM variant");
    return -1;
}
