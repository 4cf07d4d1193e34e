// SPDX-License-Identifier: Apache-2.0
#include "sim/firmware_bundle.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>

#include "sim/flash.h"
#include "sim/partition_list.h"
#include "sim/platform_block.h"
#include "sim/version_text.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

// What a file of each sort can sensibly have; a bigger one is refused before it is read.
constexpr uint64_t kMaxTextFile = 4 << 20;
constexpr uint64_t kMaxImageBytes = 1 << 30;  // all images together

constexpr uint32_t kFlashImageId = 1;
constexpr uint32_t kPartition1ImageId = 2;

// None if there is no regular file of that name: the host then serves nothing either.
// `already`: bytes that other files have taken of the limit.
std::optional<std::string> read_file(const fs::path& file, uint64_t limit, uint64_t already = 0) {
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return {};
    const uint64_t size = fs::file_size(file, error);
    if (error) throw FirmwareError(file.string() + ": " + error.message());
    if (size > limit - already) {
        const std::string others =
            already == 0 ? "" : " and " + std::to_string(already) + " of the images before it";
        throw FirmwareError(file.string() + ": " + std::to_string(size) + " bytes" + others +
                            ", more than the limit of " + std::to_string(limit));
    }
    std::ifstream stream(file, std::ios::binary);
    std::string bytes(static_cast<size_t>(size), '\0');
    if (!stream.read(bytes.data(), static_cast<std::streamsize>(size))) {
        throw FirmwareError(file.string() + ": cannot be read: " + std::strerror(errno));
    }
    return bytes;
}

std::string range_text(const std::string& name, uint64_t offset, uint64_t size) {
    return "partition " + name + " (offset " + std::to_string(offset) + ", " +
           std::to_string(size) + " bytes)";
}

std::string describe(const Partition& partition) {
    return "partition " + partition.name + ": image " + partition.image_path + " ";
}

class Loader {
  public:
    Loader(fs::path directory, const PlatformFacts& facts)
        : directory_(std::move(directory)), facts_(facts) {}

    void load_images(FirmwareBundle& bundle) {
        const fs::path file = directory_ / "partition_table.xml";
        const auto xml = read_file(file, kMaxTextFile);
        if (!xml) throw FirmwareError(file.string() + ": no such file");
        const PartitionList list = read_partition_list(*xml, file.string());
        // The first record of an id is the one that is served: those of the table come first.
        for (const Partition& partition : list.partitions) add_partition(bundle, partition);
        add_fixed(bundle, kFlashImageId, "flash.bin");
        if (!bundle.images.empty() && !bundle.images.back().in_table) {
            patch_platform_block(bundle.images.back().data, list.elf_offset,
                                 expected_platform_block(facts_));
        }
        add_fixed(bundle, kPartition1ImageId, "partition_1.bin");
    }

  private:
    std::vector<uint8_t> image_bytes(const std::string& bytes) {
        total_ += bytes.size();
        return {bytes.begin(), bytes.end()};
    }

    void add_partition(FirmwareBundle& bundle, const Partition& partition) {
        if (partition.erasable && partition.size != 0) {
            if (partition.size > Flash::kSize - partition.offset) {
                throw FirmwareError(range_text(partition.name, partition.offset, partition.size) +
                                    " reaches beyond the end of the flash");
            }
            bundle.erase_ranges.push_back({partition.name, partition.offset, partition.size});
        }
        const bool id_is_new = ids_.insert(partition.id).second;
        if (partition.image_path.empty()) return;
        if (!id_is_new) {
            bundle.notes.push_back(describe(partition) + "is never served: its id " +
                                   std::to_string(partition.id) + " belongs to an earlier one");
            return;
        }
        // Appended as text: a path with a slash in front stays inside the directory.
        const fs::path file = directory_.string() + "/" + partition.image_path;
        const auto bytes = read_file(file, kMaxImageBytes, total_);
        if (!bytes) {
            bundle.notes.push_back(describe(partition) + "is not there, or no file: left out");
            return;
        }
        if (partition.size != 0 && bytes->size() > partition.size) {
            bundle.notes.push_back(describe(partition) + "has " + std::to_string(bytes->size()) +
                                   " bytes, more than the partition's " +
                                   std::to_string(partition.size));
        }
        if (bytes->size() > Flash::kSize - partition.offset) {
            throw FirmwareError(range_text(partition.name, partition.offset, bytes->size()) +
                                " reaches beyond the end of the flash");
        }
        bundle.images.push_back(
            {partition.id, partition.name, image_bytes(*bytes), true, partition.offset});
    }

    void add_fixed(FirmwareBundle& bundle, uint32_t id, const char* name) {
        if (!ids_.insert(id).second) {
            bundle.notes.push_back(std::string(name) + " is never served: its id " +
                                   std::to_string(id) + " belongs to a partition");
            return;
        }
        const auto bytes = read_file(directory_ / name, kMaxImageBytes, total_);
        if (!bytes) bundle.notes.push_back(std::string(name) + " is not there: served as empty");
        bundle.images.push_back({id, name, image_bytes(bytes.value_or("")), false, 0});
    }

    fs::path directory_;
    const PlatformFacts& facts_;
    std::set<uint32_t> ids_;
    uint64_t total_ = 0;
};

void check_overlaps(const std::vector<Image>& images) {
    std::vector<const Image*> placed;
    for (const Image& image : images) {
        if (image.in_table && !image.data.empty()) placed.push_back(&image);
    }
    std::sort(placed.begin(), placed.end(),
              [](const Image* a, const Image* b) { return a->offset < b->offset; });
    for (size_t i = 1; i < placed.size(); ++i) {
        const Image& first = *placed[i - 1];
        const Image& second = *placed[i];
        if (second.offset - first.offset < first.data.size()) {
            throw FirmwareError(
                "the images of " + range_text(first.name, first.offset, first.data.size()) +
                " and " + range_text(second.name, second.offset, second.data.size()) + " overlap");
        }
    }
}

void check_flash_image(const std::vector<Image>& images, const fs::path& directory) {
    for (const Image& image : images) {
        if (image.id == kFlashImageId && !image.data.empty()) return;
    }
    throw FirmwareError(
        directory.string() +
        ": flash.bin (image 1) is missing, empty or no file: the daemon starts no update");
}

}  // namespace

FirmwareBundle FirmwareBundle::load(const fs::path& image_directory,
                                    const fs::path& fallback_version_file,
                                    const PlatformFacts& facts) {
    FirmwareBundle bundle;
    Loader(image_directory, facts).load_images(bundle);
    check_overlaps(bundle.images);
    check_flash_image(bundle.images, image_directory);
    const fs::path version_file = image_directory / "tbx7700_ver_info.txt";
    for (const fs::path& file : {version_file, fallback_version_file}) {
        if (const auto text = read_file(file, kMaxTextFile)) {
            bundle.versions = read_versions(*text, file.string());
            break;
        }
    }
    return bundle;
}

uint64_t FirmwareBundle::bytes_to_erase() const {
    uint64_t total = 0;
    for (const EraseRange& range : erase_ranges) total += range.size;
    return total;
}

uint64_t FirmwareBundle::bytes_to_write() const {
    uint64_t total = 0;
    for (const Image& image : images) total += image.data.size();
    return total;
}

}  // namespace sim
