// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/partition_table.h"

#include <tinyxml2.h>

namespace {

using tinyxml2::XMLElement;

std::optional<int32_t> number(const XMLElement& parent, const char* name) {
    const XMLElement* element = parent.FirstChildElement(name);
    return element == nullptr ? std::nullopt : std::optional<int32_t>(element->IntText(0));
}

std::optional<std::string> text(const XMLElement& parent, const char* name) {
    const XMLElement* element = parent.FirstChildElement(name);
    if (element == nullptr) {
        return std::nullopt;
    }
    const char* content = element->GetText();
    return std::string(content == nullptr ? "" : content);
}

PartitionElement read_partition(const XMLElement& element) {
    PartitionElement partition;
    partition.offset = number(element, "Offset");
    partition.img_id = number(element, "img_id");
    partition.partition_name = text(element, "Partition_Name");
    partition.image_path = text(element, "Image_Path");
    partition.size = number(element, "size");
    if (const XMLElement* host = element.FirstChildElement("HostSpecificInfo")) {
        partition.part_type = number(*host, "PartType");
    }
    return partition;
}

void read_partitions(const XMLElement& bank, PartitionTable& table) {
    const XMLElement* list = bank.FirstChildElement("Partition_table");
    if (list == nullptr) {
        return;
    }
    table.has_table = true;
    table.no_of_partitions = text(*list, "no_of_partitions");
    for (const XMLElement* element = list->FirstChildElement("Partition"); element != nullptr;
         element = element->NextSiblingElement("Partition")) {
        table.partitions.push_back(read_partition(*element));
    }
}

}  // namespace

void PartitionValues::carry_over(const PartitionElement& element) {
    img_id = element.img_id.value_or(img_id);
    offset = element.offset.value_or(offset);
    partition_name = element.partition_name.value_or(partition_name);
    image_path = element.image_path.value_or(image_path);
    xml_size = element.size.value_or(xml_size);
    is_erasable = element.part_type.value_or(0) != 0;
}

std::optional<PartitionTable> parse_partition_table(std::span<const uint8_t> xml,
                                                    std::string* why) {
    const std::string characters(xml.begin(), xml.end());
    tinyxml2::XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
    if (document.Parse(characters.data(), characters.size()) != tinyxml2::XML_SUCCESS) {
        *why = document.ErrorStr();
        return std::nullopt;
    }
    PartitionTable table;
    const XMLElement* root = document.FirstChildElement();
    if (root == nullptr) {
        return table;
    }
    table.has_root = true;
    if (const XMLElement* mbr = root->FirstChildElement("mbr")) {
        table.has_mbr = true;
        table.boot_loader_offset = number(*mbr, "Partition_1_SBL_Offset");
    }
    if (const XMLElement* bank = root->FirstChildElement("Bank_1")) {
        table.has_bank = true;
        read_partitions(*bank, table);
    }
    return table;
}
