// SPDX-License-Identifier: Apache-2.0
// Tells the boot loader inside the flash image which host it runs beside.
#include <algorithm>
#include <optional>
#include <span>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/elf_image.h"
#include "fwupdater/marlo_fw_updater.h"
#include "platform/file.h"

namespace {

// The operation in whose name its steps log.
constexpr const char* kPatching = "updatePlatformInfo";

// The first `most` bytes of a kernel file, up to a NUL. Nothing where it cannot be opened.
std::optional<std::string> kernel_text(const char* path, size_t most) {
    std::string text(most, '\0');
    const ssize_t count = os::read_file_up_to(path, text.data(), most);
    if (count < 0) {
        return std::nullopt;
    }
    text.resize(static_cast<size_t>(count));
    text.resize(std::min(text.find('\0'), text.size()));
    return text;
}

// The ELF image at `offset` of the flash image, up to its end; empty where there is none.
std::span<uint8_t> elf_inside(std::span<uint8_t> image, int32_t offset) {
    const bool inside = offset >= 0 && static_cast<size_t>(offset) < image.size();
    return inside ? image.subspan(static_cast<size_t>(offset)) : std::span<uint8_t>();
}

void log_class(uint8_t elf_class) {
    if (elf_class == elf::kClass64) {
        MARLO_LOG_FOR(kPatching, error, "ELFCLASS64");
    } else if (elf_class == elf::kClass32) {
        MARLO_LOG_FOR(kPatching, error, "ELFCLASS32");
    } else {
        MARLO_LOG_FOR(kPatching, error, "Invalid ELF");
    }
}

void patch_block(std::span<uint8_t> elf, uint32_t offset, const platform_info& info) {
    MARLO_LOG_FOR(kPatching, debug, "BinsToBuf debugPolicy_offset=%x", offset);
    if (!info.write_to(elf, offset)) {
        MARLO_LOG_FOR(kPatching, error,
                      "debug policy block at %x lies outside the image of %zu bytes", offset,
                      elf.size());
        return;
    }
    const platform_info written = platform_info::read_from(elf, offset);
    MARLO_LOG_FOR(kPatching, debug, "debug_policy = %x", written.debug_policy);
    MARLO_LOG_FOR(kPatching, debug, "platform_id = %x", written.platform_id);
    MARLO_LOG_FOR(kPatching, debug, "major_id = %x", written.major_id);
    MARLO_LOG_FOR(kPatching, debug, "minor_id = %x", written.minor_id);
    MARLO_LOG_FOR(kPatching, debug, "sub_type = %x", written.sub_type);
}

}  // namespace

platform_info marlo_fw_updater::getPlatformInfo() {
    platform_info info;
    if (const auto text = kernel_text("/sys/devices/soc0/hw_platform", 3)) {
        MARLO_LOG(debug, "HW Platform = %s\n", text->c_str());
        info.platform_id = platform_id_of(*text);
    }
    if (const auto text = kernel_text("/sys/devices/soc0/platform_subtype_id", 2)) {
        MARLO_LOG(debug, "Platform type = %s\n", text->c_str());
        info.sub_type = sub_type_of(*text);
    }
    if (auto text = kernel_text("/sys/kernel/dload/dload_mode", 24)) {
        if (!text->empty()) {
            text->pop_back();
        }
        MARLO_LOG(debug, "%s\n", text->c_str());
        info.debug_policy = is_mini_dump_mode(*text) ? 1 : 0;
        MARLO_LOG(debug, "plat_info.debug_policy: %d\n", static_cast<int>(info.debug_policy));
    }
    return info;
}

// cppcheck-suppress passedByValue ; the interface hands a copy over
void marlo_fw_updater::updatePlatformInfo(std::span<uint8_t> image, platform_info info) {
    if (image.empty()) {
        MARLO_LOG(error, "firmware resource is empty");
        return;
    }
    const std::span<uint8_t> elf = elf_inside(image, tbx_elf_offset);
    if (!elf::has_magic(elf)) {
        MARLO_LOG(error, "Unknown File Type");
        return;
    }
    log_class(elf::class_of(elf));
    const std::optional<elf::ProgramHeaderTable> table = elf::read_header(elf);
    if (table && table->count < 2) {
        return;
    }
    if (!table || !elf::fits(elf, *table)) {
        MARLO_LOG(error, "ELF headers at %d lie outside the image of %zu bytes", tbx_elf_offset,
                  image.size());
        return;
    }
    // Header 0 describes the headers themselves.
    for (uint16_t index = 1; index < table->count; ++index) {
        const elf::ProgramHeader header = elf::read_program_header(elf, *table, index);
        if (header.virtual_address == kDebugPolicyAddress) {
            patch_block(elf, header.file_offset, info);
        }
    }
}
