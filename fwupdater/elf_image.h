// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// The few fields of an ELF image, 32-bit or 64-bit, that lead to its program headers. The bytes
// come from a file that may hold anything: nothing is read outside them.
namespace elf {

inline constexpr uint8_t kClass32 = 1;
inline constexpr uint8_t kClass64 = 2;

bool has_magic(std::span<const uint8_t> elf);

// The class byte: kClass32, kClass64, or an invalid value.
uint8_t class_of(std::span<const uint8_t> elf);

// Where the program headers are.
struct ProgramHeaderTable {
    uint32_t offset;
    uint16_t count;
    bool is_64_bit;  // the layout: 64-bit for kClass64, 32-bit for any other class
};

// Nothing where the ELF header does not fit into `elf`.
std::optional<ProgramHeaderTable> read_header(std::span<const uint8_t> elf);

// Whether the whole table lies inside `elf`.
bool fits(std::span<const uint8_t> elf, const ProgramHeaderTable& table);

struct ProgramHeader {
    uint32_t file_offset;  // from the start of the ELF image; low word in a 64-bit image
    uint64_t virtual_address;
};

// Header `index`, below table.count, of a table that fits.
ProgramHeader read_program_header(std::span<const uint8_t> elf, const ProgramHeaderTable& table,
                                  uint16_t index);

}  // namespace elf
