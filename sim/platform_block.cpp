// SPDX-License-Identifier: Apache-2.0
#include "sim/platform_block.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace sim {

namespace {

// Where the two ELF classes keep what is needed here.
struct Layout {
    size_t header_size;
    size_t table_offset_at;
    size_t count_at;
    size_t entry_size;
    size_t file_offset_at;
    size_t address_at;
    size_t address_size;
};

constexpr Layout kElf32 = {52, 28, 44, 32, 4, 8, 4};
constexpr Layout kElf64 = {64, 32, 56, 56, 8, 16, 8};

uint64_t number_at(std::span<const uint8_t> bytes, size_t at, size_t size) {
    uint64_t number = 0;
    for (size_t i = size; i-- > 0;) number = number << 8 | bytes[at + i];
    return number;
}

bool inside(std::span<const uint8_t> bytes, uint64_t start, uint64_t size) {
    return start <= bytes.size() && size <= bytes.size() - start;
}

void write_block(std::span<uint8_t> bytes, size_t at, const PlatformBlock& block) {
    for (uint32_t word : block) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes[at++] = static_cast<uint8_t>(word >> shift);
        }
    }
}

std::optional<Layout> layout_of(std::span<const uint8_t> elf) {
    constexpr size_t kClassAt = 4;
    constexpr uint32_t kElfMagic = 0x464C457F;
    if (!inside(elf, 0, kElf32.header_size) || number_at(elf, 0, 4) != kElfMagic) return {};
    const Layout& layout = elf[kClassAt] == 2 ? kElf64 : kElf32;
    if (!inside(elf, 0, layout.header_size)) return {};
    return layout;
}

}  // namespace

PlatformBlock expected_platform_block(const PlatformFacts& facts) {
    const uint32_t platform_id = facts.hw_platform.starts_with("WDP") ? 0x24 : 0x22;
    const int subtype = std::atoi(facts.platform_subtype.substr(0, 2).c_str());
    std::string mode = facts.download_mode.substr(0, 24);
    if (!mode.empty()) mode.pop_back();
    const uint32_t debug_policy = mode.find("mini") != std::string::npos ? 1 : 0;
    return {debug_policy, platform_id, 0xFFFFFFFF, 0xFFFFFFFF, static_cast<uint32_t>(subtype)};
}

int patch_platform_block(std::span<uint8_t> image, int32_t elf_offset, const PlatformBlock& block) {
    if (elf_offset < 0 || static_cast<size_t>(elf_offset) >= image.size()) return 0;
    const std::span<uint8_t> elf = image.subspan(static_cast<size_t>(elf_offset));
    const std::optional<Layout> layout = layout_of(elf);
    if (!layout) return 0;
    const uint64_t table = number_at(elf, layout->table_offset_at, 4);
    const uint64_t count = number_at(elf, layout->count_at, 2);
    if (!inside(elf, table, count * layout->entry_size)) return 0;
    int patched = 0;
    for (uint64_t i = 1; i < count; ++i) {
        const size_t entry = static_cast<size_t>(table + i * layout->entry_size);
        const uint64_t address = number_at(elf, entry + layout->address_at, layout->address_size);
        const uint64_t place = number_at(elf, entry + layout->file_offset_at, 4);
        if (address != kPlatformBlockAddress || !inside(elf, place, 4 * block.size())) continue;
        write_block(elf, static_cast<size_t>(place), block);
        ++patched;
    }
    return patched;
}

}  // namespace sim
