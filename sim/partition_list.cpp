// SPDX-License-Identifier: Apache-2.0
#include "sim/partition_list.h"

#include <tinyxml2.h>

#include "sim/firmware_bundle.h"

namespace sim {

namespace {

using tinyxml2::XMLElement;

// A table on a real flash has tens of entries; a file with more is not one.
constexpr size_t kMaxPartitions = 4096;

std::string text_of(const XMLElement* element) {
    const char* text = element->GetText();
    return text ? text : "";
}

void overwrite(const XMLElement* parent, const char* name, uint32_t& value) {
    const XMLElement* child = parent->FirstChildElement(name);
    if (child) value = static_cast<uint32_t>(child->IntText());
}

void overwrite(const XMLElement* parent, const char* name, std::string& value) {
    const XMLElement* child = parent->FirstChildElement(name);
    if (child) value = text_of(child);
}

bool erasable(const XMLElement* partition) {
    const XMLElement* info = partition->FirstChildElement("HostSpecificInfo");
    const XMLElement* type = info ? info->FirstChildElement("PartType") : nullptr;
    return type && type->IntText() != 0;
}

}  // namespace

PartitionList read_partition_list(const std::string& xml, const std::string& file) {
    tinyxml2::XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);
    if (document.Parse(xml.data(), xml.size()) != tinyxml2::XML_SUCCESS) {
        throw FirmwareError(file + ": not readable as XML: " + document.ErrorStr());
    }
    PartitionList list;
    const XMLElement* root = document.RootElement();
    if (!root) return list;
    const XMLElement* mbr = root->FirstChildElement("mbr");
    const XMLElement* place = mbr ? mbr->FirstChildElement("Partition_1_SBL_Offset") : nullptr;
    if (place) list.elf_offset = place->IntText();
    const XMLElement* bank = root->FirstChildElement("Bank_1");
    if (!bank) throw FirmwareError(file + ": no element Bank_1: the daemon loads no image at all");
    const XMLElement* table = bank->FirstChildElement("Partition_table");
    if (!table) return list;
    Partition current{};
    for (const XMLElement* element = table->FirstChildElement("Partition"); element;
         element = element->NextSiblingElement("Partition")) {
        overwrite(element, "Offset", current.offset);
        overwrite(element, "img_id", current.id);
        overwrite(element, "Partition_Name", current.name);
        overwrite(element, "Image_Path", current.image_path);
        overwrite(element, "size", current.size);
        current.erasable = erasable(element);
        list.partitions.push_back(current);
        if (list.partitions.size() > kMaxPartitions) {
            throw FirmwareError(file + ": more than " + std::to_string(kMaxPartitions) +
                                " Partition elements");
        }
    }
    return list;
}

}  // namespace sim
