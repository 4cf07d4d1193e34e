// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/table_check.h"

#include <tinyxml2.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/marlo_fw/table_characters.h"
#include "tools/marlo_fw/table_structure.h"
#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

using tinyxml2::XMLElement;

constexpr std::array<std::string_view, 2> kInRoot = {"mbr", "Bank_1"};
constexpr std::array<std::string_view, 1> kInMbr = {"Partition_1_SBL_Offset"};
constexpr std::array<std::string_view, 1> kInBank = {"Partition_table"};
constexpr std::array<std::string_view, 1> kInTable = {"no_of_partitions"};
constexpr std::array<std::string_view, 6> kInPartition = {
    "img_id", "Offset", "Partition_Name", "Image_Path", "size", "HostSpecificInfo"};
constexpr std::array<std::string_view, 1> kInHost = {"PartType"};

// The number, where every reader takes the text for the same one.
std::optional<int64_t> plain_number(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    text.remove_prefix(begin);
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_one = !text.empty() && error == std::errc() && end == text.data() + text.size();
    return is_one ? std::optional(number) : std::nullopt;
}

// A number outside this range, or something else than one.
void check_number(const XMLElement* element, const std::optional<int32_t>& read,
                  const std::string& owner, Findings& findings, bool may_be_negative = false) {
    if (element == nullptr) return;
    const std::string text = whole_text(*element, findings);
    const std::optional<int64_t> number = plain_number(text);
    if (number && *number <= INT32_MAX && *number >= (may_be_negative ? INT32_MIN : 0)) return;
    const std::string range =
        may_be_negative ? "" : "; a number from 0 to 2147483647 belongs there";
    findings.add({area_of(*element),
                  "number-misread",
                  place_of(*element) + owner,
                  in_quotes(text),
                  "the daemon reads " + std::to_string(read.value_or(0)) + range,
                  {}});
}

void check_path(const XMLElement* element, const std::string& owner, Findings& findings) {
    if (element == nullptr) return;
    const std::string path = whole_text(*element, findings);
    const auto add = [&](const std::string& consequence) {
        findings.add({Area::kTable,
                      "image-path-odd",
                      place_of(*element) + owner,
                      in_quotes(path),
                      consequence,
                      {}});
    };
    if (path.starts_with("/")) {
        add("the daemon looks for it below the image directory all the same");
    }
    if (("/" + path + "/").find("/../") != std::string::npos) {
        add("the daemon leaves the image directory to read it");
    }
    constexpr std::string_view kBlanks = " \t\r\n";
    if (!path.empty() &&
        (kBlanks.find(path.front()) != kBlanks.npos || kBlanks.find(path.back()) != kBlanks.npos)) {
        add("the daemon takes the blanks around it as part of the name");
    }
}

// Walks the partitions beside the daemon's reading of them.
class PartitionCheck {
  public:
    explicit PartitionCheck(Findings& findings) : findings_(findings) {}

    std::string check(const XMLElement& element, const PartitionElement& read) {
        const PartitionValues before = values_;
        values_.carry_over(read);
        ++number_;
        const std::string owner = ": partition " + std::to_string(number_) + " (" +
                                  in_quotes(values_.partition_name) + ")";
        place_ = std::string(kTableFile) + ":" + std::to_string(element.GetLineNum()) + owner;
        check_children(element, kInPartition, "", findings_);
        check_number(element.FirstChildElement("img_id"), read.img_id, owner, findings_);
        check_number(element.FirstChildElement("Offset"), read.offset, owner, findings_);
        check_number(element.FirstChildElement("size"), read.size, owner, findings_);
        check_path(element.FirstChildElement("Image_Path"), owner, findings_);
        if (const XMLElement* name = element.FirstChildElement("Partition_Name")) {
            whole_text(*name, findings_);
        }
        if (const XMLElement* host = element.FirstChildElement("HostSpecificInfo")) {
            check_children(*host, kInHost, "", findings_);
            check_number(host->FirstChildElement("PartType"), read.part_type, owner, findings_,
                         true);
            if (!read.part_type) {
                findings_.add({Area::kTable,
                               "value-missing",
                               place_of(*host) + owner,
                               "no <PartType>",
                               "the daemon does not erase the partition",
                               {}});
            }
        }
        check_absent("img_id", read.img_id, std::to_string(before.img_id));
        check_absent("Offset", read.offset, std::to_string(before.offset));
        check_absent("size", read.size, std::to_string(before.xml_size));
        check_absent("Partition_Name", read.partition_name, in_quotes(before.partition_name));
        // No path and no path before is a partition without an image.
        if (!before.image_path.empty()) {
            check_absent("Image_Path", read.image_path, in_quotes(before.image_path));
        }
        return place_;
    }

  private:
    template <typename Value>
    void check_absent(const char* name, const std::optional<Value>& value,
                      const std::string& before) {
        if (value) return;
        const std::string what = std::string("no <") + name + ">";
        if (number_ == 1) {
            findings_.add(
                {Area::kTable, "value-missing", place_, what, "the daemon takes " + before, {}});
        } else {
            findings_.add({Area::kTable,
                           "value-carried-over",
                           place_,
                           what,
                           "the daemon takes " + before + ", as of the partition before it",
                           {}});
        }
    }

    Findings& findings_;
    PartitionValues values_;
    int number_ = 0;
    std::string place_;
};

void check_count(const XMLElement& table, size_t found, Findings& findings) {
    const XMLElement* element = table.FirstChildElement("no_of_partitions");
    if (element == nullptr) return;
    const std::string text = whole_text(*element, findings);
    if (plain_number(text) == static_cast<int64_t>(found)) return;
    findings.add({Area::kTable,
                  "partition-count-differs",
                  place_of(*element),
                  in_quotes(text),
                  "the daemon loads all " + count_of(found, "partition"),
                  {}});
}

std::vector<std::string> check_partitions(const XMLElement& bank, const PartitionTable& read,
                                          Findings& findings) {
    check_children(bank, kInBank, "", findings);
    const XMLElement* table = bank.FirstChildElement("Partition_table");
    if (table == nullptr || read.partitions.empty()) {
        findings.add({Area::kTable,
                      "no-partitions",
                      place_of(table == nullptr ? bank : *table),
                      table == nullptr ? "no <Partition_table>" : "no <Partition>",
                      "the daemon serves flash.bin and partition_1.bin alone and erases nothing",
                      {}});
    }
    std::vector<std::string> places;
    if (table == nullptr) return places;
    check_children(*table, kInTable, "Partition", findings);
    check_count(*table, read.partitions.size(), findings);
    PartitionCheck check(findings);
    const XMLElement* element = table->FirstChildElement("Partition");
    for (const PartitionElement& partition : read.partitions) {
        places.push_back(check.check(*element, partition));
        element = element->NextSiblingElement("Partition");
    }
    return places;
}

void check_boot_loader_offset(const XMLElement& root, const PartitionTable& read,
                              Findings& findings) {
    const XMLElement* mbr = root.FirstChildElement("mbr");
    if (mbr != nullptr) check_children(*mbr, kInMbr, "", findings);
    if (mbr == nullptr || !read.boot_loader_offset) {
        findings.add({Area::kFlashImage,
                      "value-missing",
                      place_of(mbr == nullptr ? root : *mbr),
                      "no <mbr> with <Partition_1_SBL_Offset>",
                      "the daemon looks for the boot loader at the beginning of flash.bin",
                      {}});
        return;
    }
    check_number(mbr->FirstChildElement("Partition_1_SBL_Offset"), read.boot_loader_offset, "",
                 findings);
}

}  // namespace

std::vector<std::string> check_table(std::span<const uint8_t> xml, const PartitionTable& read,
                                     Findings& findings) {
    check_characters(xml, findings);
    const std::string characters(xml.begin(), xml.end());
    tinyxml2::XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
    document.Parse(characters.data(), characters.size());
    const XMLElement* root = document.FirstChildElement();
    if (root == nullptr) {
        findings.add({Area::kTable,
                      "no-root",
                      kTableFile,
                      "no element",
                      "the daemon serves flash.bin and partition_1.bin alone and erases nothing",
                      {}});
        return {};
    }
    check_children(document, {}, "", findings);
    if (const XMLElement* second = root->NextSiblingElement()) {
        findings.add({Area::kTable,
                      "element-repeated",
                      place_of(*second),
                      "a second root",
                      "the daemon reads the first <" + printable(root->Name()) + "> only",
                      {}});
    }
    check_children(*root, kInRoot, "", findings);
    check_boot_loader_offset(*root, read, findings);
    const XMLElement* bank = root->FirstChildElement("Bank_1");
    if (bank == nullptr) {
        findings.add({Area::kTable,
                      "no-bank",
                      place_of(*root),
                      "no <Bank_1>",
                      "the daemon loads nothing at all, not even flash.bin: no update starts",
                      {}});
        return {};
    }
    return check_partitions(*bank, read, findings);
}

}  // namespace marlo_fw
