// SPDX-License-Identifier: Apache-2.0
// The patch of the flash image: any bytes as the image, with a boot loader in it or not.
#include <algorithm>

#include "fuzz/harness.h"
#include "fwupdater/marlo_fw_updater.h"

using fuzz::Bytes;
using fuzz::must;
using fuzz::platform;
using fuzz::word_at;

namespace {

constexpr uint32_t kAddress = 0x20147FA4;  // of the segment that begins with the block

Bytes block_of(const platform_info& info) {
    Bytes block;
    for (const uint32_t word :
         {info.debug_policy, info.platform_id, info.major_id, info.minor_id, info.sub_type}) {
        fuzz::append_word(block, word);
    }
    return block;
}

// The patch, written a second time: `image` with the block at the start of each segment that is
// loaded to its address, whatever else is there, except where it does not fit.
Bytes patched(Bytes image, int32_t offset, const Bytes& block) {
    if (offset < 0 || static_cast<size_t>(offset) >= image.size()) {
        return image;
    }
    const std::span<uint8_t> elf = std::span(image).subspan(static_cast<size_t>(offset));
    const bool is_64_bit = elf.size() > 4 && elf[4] == 2;
    const uint64_t first = word_at(elf, is_64_bit ? 32 : 28);
    const uint64_t count = word_at(elf, is_64_bit ? 56 : 44) & 0xFFFF;
    const uint64_t step = is_64_bit ? 56 : 32;
    const bool has_headers = word_at(elf, 0) == 0x464C457F && elf.size() >= (is_64_bit ? 64 : 52) &&
                             first + count * step <= elf.size();
    for (uint64_t index = 1; has_headers && index < count; ++index) {
        const auto header = static_cast<size_t>(first + index * step);
        const uint32_t high_address = is_64_bit ? word_at(elf, header + 20) : 0;
        const uint32_t segment = word_at(elf, header + (is_64_bit ? 8 : 4));
        if (word_at(elf, header + (is_64_bit ? 16 : 8)) == kAddress && high_address == 0 &&
            uint64_t{segment} + block.size() <= elf.size()) {
            std::copy(block.begin(), block.end(), elf.begin() + segment);
        }
    }
    return image;
}

std::string table_with(int32_t offset) {
    return "<config><mbr><Partition_1_SBL_Offset>" + std::to_string(offset) +
           "</Partition_1_SBL_Offset></mbr></config>";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::Input input(data, size);
    const auto offset = static_cast<int32_t>(input.flip() ? input.word() : input.below(64));
    platform_info info;
    info.debug_policy = input.below(2);
    info.sub_type = input.below(100);
    const std::span<const uint8_t> contents = input.take(size);
    const Bytes before(contents.begin(), contents.end());

    const std::string table = std::string(fw_image_dir) + partition_table_file;
    platform().file(table, table_with(offset));
    marlo_fw_updater updater;
    updater.parsePartitionAndSaveFw(table);
    Bytes image = before;
    updater.updatePlatformInfo(image, info);

    must(image == patched(before, offset, block_of(info)), "another patch is made");
    return 0;
}
