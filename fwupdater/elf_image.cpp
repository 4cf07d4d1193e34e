// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/elf_image.h"

#include "wire/little_endian.h"

namespace elf {
namespace {

constexpr uint32_t kMagic = 0x464C457F;  // 0x7F 'E' 'L' 'F'
constexpr size_t kClassOffset = 4;

// Where one of the two layouts keeps what is read here.
struct Layout {
    size_t header_size;
    size_t table_offset;
    size_t count;
    size_t entry_size;
    size_t entry_file_offset;
    size_t entry_virtual_address;
};
constexpr Layout kLayout32 = {52, 28, 44, 32, 4, 8};
constexpr Layout kLayout64 = {64, 32, 56, 56, 8, 16};

const Layout& layout_of(bool is_64_bit) {
    return is_64_bit ? kLayout64 : kLayout32;
}

}  // namespace

bool has_magic(std::span<const uint8_t> elf) {
    return elf.size() >= 4 && wire::word_at(elf, 0) == kMagic;
}

uint8_t class_of(std::span<const uint8_t> elf) {
    return elf.size() > kClassOffset ? elf[kClassOffset] : uint8_t{0};
}

std::optional<ProgramHeaderTable> read_header(std::span<const uint8_t> elf) {
    const bool is_64_bit = class_of(elf) == kClass64;
    const Layout& layout = layout_of(is_64_bit);
    if (elf.size() < layout.header_size) {
        return std::nullopt;
    }
    wire::Reader count(elf.subspan(layout.count));
    return ProgramHeaderTable{wire::word_at(elf, layout.table_offset), count.u16(), is_64_bit};
}

bool fits(std::span<const uint8_t> elf, const ProgramHeaderTable& table) {
    const size_t size = size_t{table.count} * layout_of(table.is_64_bit).entry_size;
    return table.offset <= elf.size() && size <= elf.size() - table.offset;
}

ProgramHeader read_program_header(std::span<const uint8_t> elf, const ProgramHeaderTable& table,
                                  uint16_t index) {
    const Layout& layout = layout_of(table.is_64_bit);
    const std::span<const uint8_t> entry =
        elf.subspan(table.offset + index * layout.entry_size, layout.entry_size);
    wire::Reader address(entry.subspan(layout.entry_virtual_address));
    return {wire::word_at(entry, layout.entry_file_offset),
            table.is_64_bit ? address.u64() : address.u32()};
}

}  // namespace elf
