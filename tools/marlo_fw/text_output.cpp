// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/text_output.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

constexpr size_t kColumns = 7;
using Cells = std::array<std::string, kColumns>;
constexpr std::array<bool, kColumns> kToTheRight = {true, false, false, false, false, true, false};
constexpr size_t kLongestName = 32;
constexpr const char* kWhenCompared =
    "So at a FLASH boot with persist.vendor.zt_aon.dfu_update = 1; where that is not 1, the "
    "daemon\n"
    "updates without comparing.\n";

constexpr const char* kRed = "\033[31;1m";
constexpr const char* kGreen = "\033[32;1m";

std::string coloured(const std::string& text, const char* colour, bool in_colour) {
    return in_colour ? colour + text + "\033[0m" : text;
}

std::string checksum(uint32_t crc) {
    char text[9];
    std::snprintf(text, sizeof(text), "%08x", crc);
    return text;
}

std::string range_of(const ImageRow& row) {
    if (row.is_fixed) return "-";
    char text[32];
    const uint64_t end = uint64_t{row.offset} + row.size;
    if (row.size == 0) {
        std::snprintf(text, sizeof(text), "0x%08x", row.offset);
    } else {
        std::snprintf(text, sizeof(text), "0x%08x-0x%08llx", row.offset,
                      static_cast<unsigned long long>(end - 1));
    }
    return text;
}

Cells cells_of(const ImageRow& row) {
    const bool has_file = !row.file.empty();
    std::string file = has_file ? printable(row.file, kLongestName) : "-";
    if (has_file && !row.is_served) file += " (never served)";
    return {std::to_string(row.id),
            printable(row.name, kLongestName),
            range_of(row),
            row.is_erased ? "erased" : "-",
            file,
            has_file ? std::to_string(row.bytes) : "-",
            has_file && row.bytes != 0 ? checksum(row.crc) : "-"};
}

std::string table_of(const std::vector<ImageRow>& images) {
    std::vector<Cells> lines = {{"id", "name", "flash range", "erase", "file", "bytes", "CRC-32"}};
    for (const ImageRow& row : images) lines.push_back(cells_of(row));
    std::array<size_t, kColumns> widths = {};
    for (const Cells& cells : lines) {
        for (size_t column = 0; column < kColumns; ++column) {
            widths[column] = std::max(widths[column], cells[column].size());
        }
    }
    std::string text;
    for (const Cells& cells : lines) {
        std::string line;
        for (size_t column = 0; column < kColumns; ++column) {
            const std::string padding(widths[column] - cells[column].size(), ' ');
            line += kToTheRight[column] ? padding + cells[column] : cells[column] + padding;
            line += "  ";
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string block_text(const platform_info& info) {
    const auto word = [](const char* name, uint32_t value) {
        return std::string(" ") + name + " " + hexadecimal(value);
    };
    return word("debug_policy", info.debug_policy) + word("platform_id", info.platform_id) +
           word("major_id", info.major_id) + word("minor_id", info.minor_id) +
           word("sub_type", info.sub_type);
}

// The image in whose place flash.bin is not served; null where it is.
const ImageRow* shadow(const Inspection& inspection) {
    const ImageRow* row = flash_image(inspection);
    return row == nullptr || row->is_fixed ? nullptr : row;
}

std::string boot_loader_text(const Inspection& inspection) {
    const BootLoader& loader = *inspection.boot_loader;
    const PlatformFacts& facts = inspection.bundle.facts;
    std::string text = "boot loader: ";
    if (const ImageRow* row = shadow(inspection)) {
        return text + "not served with its block: flash.bin is hidden by partition " +
               in_quotes(row->name) + ", which has its id\n";
    }
    if (!loader.found) {
        return text + "none at " + std::to_string(loader.offset) + " of flash.bin\n";
    }
    text += std::string(loader.is_64_bit ? "64" : "32") + "-bit ELF at " +
            std::to_string(loader.offset) + " of flash.bin\n";
    for (const uint64_t block : loader.blocks) {
        text += "  for platform " + facts.platform + ", subtype " + std::to_string(facts.subtype) +
                ", " + facts.dload + " dumps the daemon writes at " + std::to_string(block) +
                ":\n   " + block_text(loader.written) + "\n";
    }
    return text;
}

std::string versions_text(const Versions& versions) {
    const std::string file = versions.file.empty() ? "no file" : printable(versions.file, 200);
    const auto line = [](const char* key, const std::string& value) {
        return std::string("  ") + key + "  " + (value.empty() ? "-" : printable(value)) + "\n";
    };
    return "versions: " + file + "\n" + line("apps_cochip", versions.shipped.apps_cochip) +
           line("dsp_cochip ", versions.shipped.dsp_cochip) +
           line("btfw_cochip", versions.shipped.btfw_cochip);
}

std::string findings_text(const Findings& findings, bool in_colour) {
    std::string text;
    for (const Finding& finding : findings.kept()) {
        text += "\n" + coloured(finding.code, kRed, in_colour) + "  " + finding.element + ": " +
                finding.value + "\n  " + finding.consequence + "\n";
        for (const std::string& line : finding.log) {
            text += "  the daemon would log: " + printable(line, 400) + "\n";
        }
    }
    if (const uint64_t more = findings.total() - findings.kept().size(); more != 0) {
        text += "\nand " + count_of(more, "finding") + " more\n";
    }
    return text;
}

std::string count_in_capitals(const Findings& findings) {
    return std::to_string(findings.total()) + (findings.total() == 1 ? " FINDING" : " FINDINGS");
}

std::string last_line(const Findings& findings, const std::string& what, bool in_colour) {
    if (findings.total() == 0) return coloured("CLEAN: ", kGreen, in_colour) + what + "\n";
    return coloured(count_in_capitals(findings) + ": ", kRed, in_colour) + what + "\n";
}

std::string summary_of(const Inspection& inspection) {
    uint64_t bytes = 0;
    uint64_t images = 0;
    uint64_t erased = 0;
    for (const ImageRow& row : inspection.images) {
        erased += row.is_erased ? 1 : 0;
        images += row.is_served && row.bytes != 0 ? 1 : 0;
        bytes += row.is_served ? row.bytes : 0;
    }
    const std::string erase = "erase " + count_of(erased, "partition") + " of " +
                              count_of(inspection.bytes_erased, "byte");
    if (!inspection.update_begins) return "the daemon would " + erase + " and start no update";
    return "the daemon would " + erase + " and serve " + count_of(images, "image") + " of " +
           count_of(bytes, "byte");
}

std::string tests_text(const Comparison& comparison) {
    std::string text;
    for (const VersionTest& test : comparison.tests) {
        const auto shown = [](const std::string& version) {
            return version.empty() ? std::string("nothing") : in_quotes(version);
        };
        const std::string name = test.name + std::string(5 - test.name.size(), ' ');
        text += name + (test.outcome + std::string(12 - test.outcome.size(), ' ')) + "runs " +
                shown(test.running) + ", ships " + shown(test.shipped) + "\n";
    }
    return text;
}

}  // namespace

std::string text_of(const Inspection& inspection, bool in_colour) {
    std::string text;
    if (!inspection.images.empty()) text += table_of(inspection.images) + "\n";
    if (inspection.boot_loader) {
        text += boot_loader_text(inspection);
    }
    if (inspection.boot_loader && shadow(inspection) == nullptr) {
        text += "  CRC-32 above: as served; of the file: " +
                checksum(inspection.flash_file_crc.value_or(0)) + "\n";
    }
    return text + versions_text(inspection.versions) +
           findings_text(inspection.findings, in_colour) + "\n" +
           last_line(inspection.findings, summary_of(inspection), in_colour);
}

std::string text_of(const Comparison& comparison, bool in_colour) {
    std::string text =
        "versions: " +
        (comparison.versions.file.empty() ? "no file" : printable(comparison.versions.file, 200)) +
        "\n" + tests_text(comparison) + findings_text(comparison.findings, in_colour) + "\n";
    if (comparison.is_without_flash) {
        text +=
            "The apps version is that of the variant without flash: in HOST mode the daemon gives "
            "it its misc data,\nand compares nothing.\n\n";
    }
    text += "the daemon would log: " + printable(comparison.log) + "\n" + kWhenCompared;
    const std::string count =
        comparison.findings.total() == 0 ? "" : ", " + count_in_capitals(comparison.findings);
    if (!comparison.updates) {
        return text +
               coloured("NO UPDATE" + count + ": ", count.empty() ? kGreen : kRed, in_colour) +
               "the daemon would leave the running firmware as it is\n";
    }
    return text + coloured("UPDATE" + count + ": ", kRed, in_colour) +
           "the daemon would update: the " + comparison.decided_by + " test decides\n";
}

std::string text_of(const Patch& patch, bool in_colour) {
    std::string text;
    if (patch.inspection.boot_loader) text = boot_loader_text(patch.inspection);
    const ImageRow* row = shadow(patch.inspection);
    const std::string source = row == nullptr ? "" : " of " + in_quotes(row->file);
    return text + findings_text(patch.findings, in_colour) + "\n" +
           last_line(patch.findings,
                     count_of(patch.bytes, "byte") + source + " written to " +
                         printable(patch.output, 400) + ", CRC-32 " + checksum(patch.crc),
                     in_colour);
}

}  // namespace marlo_fw
