// SPDX-License-Identifier: Apache-2.0
// Loads the images that a session serves: those of the partition table, and two fixed ones.
#include <map>
#include <new>
#include <utility>

#include "daemon/marlo_deamon_log.h"
#include "fwupdater/image_file.h"
#include "fwupdater/marlo_fw_updater.h"

namespace {

constexpr int32_t kFlashImageId = 1;
constexpr int32_t kPartition1ImageId = 2;

// The operations in whose names their steps log.
constexpr const char* kLoading = "parsePartitionAndSaveFw";
constexpr const char* kReading = "readFile";

std::optional<PartitionTable> load_partition_table(const std::string& path) {
    const std::optional<FileBytes> xml = read_regular_file(path, kLargestText);
    std::string why;
    std::optional<PartitionTable> table = xml ? parse_partition_table(*xml, &why) : std::nullopt;
    if (xml && !table) {
        MARLO_LOG_FOR(kLoading, error, "%s is no partition table: %s", path.c_str(), why.c_str());
    }
    return table;
}

void log_boot_loader_offset(const PartitionTable& table) {
    if (table.has_mbr) {
        MARLO_LOG_FOR(kLoading, debug, "mbr_Element is Not NULL");
    }
    if (table.boot_loader_offset) {
        MARLO_LOG_FOR(kLoading, debug, "PartitionSBLOffsetElement is Not NULL");
        MARLO_LOG_FOR(kLoading, debug, "tbx_elf_offset : %d", *table.boot_loader_offset);
    }
}

void log_partition(const PartitionElement& element) {
    if (element.offset) {
        MARLO_LOG_FOR(kLoading, debug, "Offset : %d", *element.offset);
    }
    if (element.img_id) {
        MARLO_LOG_FOR(kLoading, debug, "Img ID : %d", *element.img_id);
    }
    if (element.partition_name) {
        MARLO_LOG_FOR(kLoading, debug, "partition Name : %s", element.partition_name->c_str());
    }
    if (element.image_path) {
        MARLO_LOG_FOR(kLoading, debug, "Img Path : %s", element.image_path->c_str());
    }
    if (element.size) {
        MARLO_LOG_FOR(kLoading, debug, "Img Size from xml: %d", *element.size);
    }
    if (element.part_type) {
        MARLO_LOG_FOR(kLoading, debug, "isErasable from xml: %d", *element.part_type);
    }
}

using Image = marlo_fw_resource::Image;

Image shared(FileBytes data) {
    return std::make_shared<const FileBytes>(std::move(data));
}

// A file that many partitions name is read for the first of them.
Image image_at(const std::string& path, std::map<std::string, Image>& read_before) {
    Image& image = read_before[path];
    const std::string whole_path = fw_image_dir + path;
    if (image == nullptr) {
        auto data = read_logged_image(whole_path, kReading);
        image = data ? shared(*std::move(data)) : nullptr;
    } else {
        MARLO_LOG_FOR(kReading, debug, "readFile Path : %s", whole_path.c_str());
    }
    return image;
}

void store_image(marlo_fw_resource& resource, const char* shown_name, Image data) {
    resource.size = data == nullptr ? 0 : static_cast<uint32_t>(data->size());
    resource.data = std::move(data);
    MARLO_LOG_FOR(kLoading, debug, "firmware %s resource Size : %d", shown_name,
                  static_cast<int>(resource.size));
}

}  // namespace

uint32_t marlo_fw_updater::parsePartitionAndSaveFw(const std::string& path) {
    try {
        return load_images(path);
    } catch (const std::bad_alloc&) {
        MARLO_LOG(error, "no memory for the partitions of %s", path.c_str());
        return 0;
    }
}

uint32_t marlo_fw_updater::load_images(const std::string& path) {
    const std::optional<PartitionTable> table = load_partition_table(path);
    if (!table) {
        MARLO_LOG_FOR(kLoading, error, "XML Config File Not Opened");
        return 0;
    }
    MARLO_LOG_FOR(kLoading, debug, "XML Config File Opened");
    if (table->has_root) {
        MARLO_LOG_FOR(kLoading, debug, "rootElement Not NULL");
        log_boot_loader_offset(*table);
        tbx_elf_offset = table->boot_loader_offset.value_or(tbx_elf_offset);
        if (!table->has_bank) {
            MARLO_LOG_FOR(kLoading, debug, "bank_1_node is NULL");
            return 0;
        }
    }
    if (table->has_table) {
        MARLO_LOG_FOR(kLoading, debug, "partitionTableElement Not NULL");
        load_partitions(*table);
    }
    FileBytes flash = readFile("./flash.bin");
    updatePlatformInfo(flash, getPlatformInfo());
    append_fixed_image(kFlashImageId, "flash_IMAGE", "flash.bin", std::move(flash));
    append_fixed_image(kPartition1ImageId, "partition_1_IMAGE", "partition_1.bin",
                       readFile("./partition_1.bin"));
    MARLO_LOG_FOR(kLoading, debug, "Partition XML Parsing Done.");
    return 1;
}

void marlo_fw_updater::load_partitions(const PartitionTable& table) {
    if (table.no_of_partitions) {
        MARLO_LOG_FOR(kLoading, debug, "no_of_partitions : %s", table.no_of_partitions->c_str());
    }
    PartitionValues values;
    std::map<std::string, Image> read_before;
    for (const PartitionElement& element : table.partitions) {
        log_partition(element);
        values.carry_over(element);
        auto resource = std::make_shared<marlo_fw_resource>();
        resource->img_id = values.img_id;
        resource->offset = values.offset;
        resource->partition_name = values.partition_name;
        resource->xml_size = values.xml_size;
        resource->isErasable = values.is_erasable;
        if (!values.image_path.empty()) {
            resource->image_path = values.image_path;
            store_image(*resource, values.partition_name.c_str(),
                        image_at(values.image_path, read_before));
        }
        fw_resources.append(resource);
    }
}

void marlo_fw_updater::append_fixed_image(int32_t img_id, const char* name, const char* file,
                                          FileBytes data) {
    auto resource = std::make_shared<marlo_fw_resource>();
    resource->img_id = img_id;
    resource->partition_name = name;
    resource->image_path = name;
    store_image(*resource, file, shared(std::move(data)));
    fw_resources.append(resource);
}

FileBytes marlo_fw_updater::readFile(const std::string& path) {
    return read_logged_image(fw_image_dir + path, kReading).value_or(FileBytes());
}

bool marlo_fw_updater::checkForFlashbin() {
    const ResourceList::Resource flash = fw_resources.find(kFlashImageId);
    if (flash == nullptr) {
        return false;
    }
    if (flash->size == 0) {
        MARLO_LOG(debug, "flash.bin file is not found");
        return false;
    }
    return true;
}

int marlo_fw_updater::truncateFwResources() {
    fw_resources.clear();
    return 0;
}
