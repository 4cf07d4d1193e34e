// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/boot_loader.h"

#include <optional>
#include <string>

#include "fwupdater/elf_image.h"
#include "tools/marlo_fw/text.h"
#include "wire/little_endian.h"

namespace marlo_fw {
namespace {

// Fields that the daemon does not look at, but takes to be as usual.
struct Layout {
    size_t header_size;
    size_t entry_size_at;
    uint16_t entry_size;
    size_t offset_at;        // in an entry
    size_t size_in_file_at;  // in an entry
};
constexpr Layout kLayout32 = {52, 42, 32, 4, 16};
constexpr Layout kLayout64 = {64, 54, 56, 8, 32};
constexpr uint32_t kUnused = 0;  // types of segments
constexpr uint32_t kLoaded = 1;
constexpr size_t kByteOrderAt = 5;
constexpr uint8_t kLittleEndian = 1;

bool overlap(uint64_t one, uint64_t one_size, uint64_t other, uint64_t other_size) {
    return one < other + other_size && other < one + one_size;
}

class Check {
  public:
    Check(std::span<const uint8_t> flash, BootLoader& result, Findings& findings)
        : elf_(flash.subspan(static_cast<size_t>(result.offset))),
          result_(result),
          findings_(findings) {}

    void run() {
        const std::optional<elf::ProgramHeaderTable> table = elf::read_header(elf_);
        check_identification();
        if (!table || (table->count >= 2 && !elf::fits(elf_, *table))) {
            add("elf-headers-outside",
                table
                    ? count_of(table->count, "program header") + " at " + hexadecimal(table->offset)
                    : count_of(elf_.size(), "byte"),
                "they lie outside flash.bin: the daemon serves it without filling in the block");
            return;
        }
        result_.is_64_bit = table->is_64_bit;
        check_layout(*table);
        check_segments(*table);
    }

  private:
    void check_identification() {
        const uint8_t elf_class = elf::class_of(elf_);
        if (elf_class != elf::kClass32 && elf_class != elf::kClass64) {
            add("elf-class-invalid", "class " + std::to_string(elf_class),
                "the daemon reads it as a 32-bit image");
        }
        if (elf_.size() > kByteOrderAt && elf_[kByteOrderAt] != kLittleEndian) {
            add("elf-byte-order", "byte order " + std::to_string(elf_[kByteOrderAt]),
                "the daemon reads it as little-endian");
        }
    }

    const Layout& layout() const { return result_.is_64_bit ? kLayout64 : kLayout32; }

    void check_layout(const elf::ProgramHeaderTable& table) {
        const uint32_t entry_size = wire::word_at(elf_, layout().entry_size_at) & 0xFFFF;
        if (table.count >= 2 && entry_size != layout().entry_size) {
            add("elf-entry-size", "program headers of " + count_of(entry_size, "byte"),
                "the daemon reads them as " + std::to_string(layout().entry_size) + " bytes each");
        }
        if (table.is_64_bit && wire::word_at(elf_, 36) != 0) {
            add("elf-offset-cut", "program headers above 4 GiB",
                "the daemon looks for them at " + hexadecimal(table.offset));
        }
    }

    void check_segments(const elf::ProgramHeaderTable& table) {
        uint32_t matching = 0;
        for (uint16_t index = 0; index < table.count && elf::fits(elf_, table); ++index) {
            const elf::ProgramHeader header = elf::read_program_header(elf_, table, index);
            const size_t entry = table.offset + size_t{index} * layout().entry_size;
            const bool is_of_block = header.virtual_address == kDebugPolicyAddress;
            if (!is_of_block || index == 0) {
                if (is_of_block) check_first(table);
                if (wire::word_at(elf_, entry) != kUnused) check_extent(entry, index);
                continue;
            }
            ++matching;
            check_segment(table, entry, index, header.file_offset);
        }
        check_count(matching, table);
    }

    void check_first(const elf::ProgramHeaderTable& table) {
        add("first-header-skipped",
            "program header 0 of " + std::to_string(table.count) + " has the address " +
                hexadecimal(kDebugPolicyAddress),
            "the daemon begins with header 1: it never fills in the block of header 0");
    }

    uint64_t number_at(size_t at) const {
        const uint64_t high = result_.is_64_bit ? wire::word_at(elf_, at + 4) : 0;
        return high << 32 | wire::word_at(elf_, at);
    }

    void check_extent(size_t entry, uint16_t index) {
        const uint64_t offset = number_at(entry + layout().offset_at);
        const uint64_t size = number_at(entry + layout().size_in_file_at);
        if (size == 0 || (offset <= elf_.size() && size <= elf_.size() - offset)) return;
        add("segment-outside",
            "program header " + std::to_string(index) + ": " + count_of(size, "byte") + " at " +
                hexadecimal(offset) + ", the boot loader has " + std::to_string(elf_.size()),
            "the segment lies outside flash.bin: the daemon serves flash.bin all the same");
    }

    void check_segment(const elf::ProgramHeaderTable& table, size_t entry, uint16_t index,
                       uint32_t offset) {
        const std::string segment = "program header " + std::to_string(index);
        const bool is_cut = table.is_64_bit && wire::word_at(elf_, entry + 12) != 0;
        if (is_cut) {
            add("elf-offset-cut", segment + " above 4 GiB",
                "the daemon writes the block at " + hexadecimal(offset) + " of the boot loader");
        }
        if (offset > elf_.size() || platform_info::kSize > elf_.size() - offset) {
            add("block-outside", segment + ": block at " + hexadecimal(offset),
                "it lies outside flash.bin: the daemon does not fill it in");
            return;
        }
        result_.blocks.push_back(static_cast<uint64_t>(result_.offset) + offset);
        check_type(wire::word_at(elf_, entry), segment);
        if (!is_cut) check_extent(entry, index);
        const uint64_t size = number_at(entry + layout().size_in_file_at);
        if (size < platform_info::kSize) {
            add("segment-too-small", segment + " of " + count_of(size, "byte"),
                "the daemon writes 20 bytes all the same, over what is behind them");
        }
        const uint64_t table_size = uint64_t{table.count} * layout().entry_size;
        if (overlap(offset, platform_info::kSize, 0, layout().header_size) ||
            overlap(offset, platform_info::kSize, table.offset, table_size)) {
            add("block-over-headers", segment + ": block at " + hexadecimal(offset),
                "the daemon writes it over the boot loader's own headers");
        }
    }

    void check_type(uint32_t type, const std::string& segment) {
        if (type == kLoaded) return;
        add("segment-not-loaded", segment + " of type " + hexadecimal(type),
            "the daemon fills in the block, of a segment that nobody loads");
    }

    void check_count(uint32_t matching, const elf::ProgramHeaderTable& table) {
        if (matching == 1) return;
        const std::string among = " of " + count_of(table.count, "program header");
        if (matching == 0) {
            add("no-debug-policy-segment",
                "none" + among + " but the first has the address " +
                    hexadecimal(kDebugPolicyAddress),
                "the daemon serves flash.bin without filling in the platform's block");
        } else {
            add("several-debug-policy-segments",
                std::to_string(matching) + among + " have the address " +
                    hexadecimal(kDebugPolicyAddress),
                "the daemon fills in the block of each");
        }
    }

    void add(const char* code, const std::string& value, const std::string& consequence) {
        findings_.add({Area::kFlashImage,
                       code,
                       "flash.bin: boot loader at " + std::to_string(result_.offset),
                       value,
                       consequence,
                       {}});
    }

    std::span<const uint8_t> elf_;
    BootLoader& result_;
    Findings& findings_;
};

}  // namespace

BootLoader check_boot_loader(std::span<const uint8_t> flash, int32_t offset,
                             const platform_info& written, Findings& findings) {
    BootLoader result;
    result.offset = offset;
    result.written = written;
    const bool is_inside = offset >= 0 && static_cast<size_t>(offset) < flash.size();
    result.found = is_inside && elf::has_magic(flash.subspan(static_cast<size_t>(offset)));
    if (result.found) {
        Check(flash, result, findings).run();
    } else {
        const std::string value =
            is_inside ? hexadecimal(wire::word_at(flash, static_cast<size_t>(offset))) +
                            " instead of 0x464c457f"
                      : "outside its " + count_of(flash.size(), "byte");
        findings.add({Area::kFlashImage,
                      "no-elf-header",
                      "flash.bin: boot loader at " + std::to_string(offset),
                      value,
                      "the daemon serves it without filling in the platform's block",
                      {}});
    }
    return result;
}

}  // namespace marlo_fw
