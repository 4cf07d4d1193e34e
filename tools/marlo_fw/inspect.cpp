// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/inspect.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "fwupdater/image_file.h"
#include "tools/marlo_fw/link_check.h"
#include "tools/marlo_fw/table_check.h"
#include "tools/marlo_fw/table_structure.h"
#include "tools/marlo_fw/text.h"
#include "wire/crc32.h"

namespace marlo_fw {
namespace {

// A table on a real flash has tens of entries. The daemon takes more, in time that grows with
// the square of their number.
constexpr size_t kMostPartitions = 4096;

constexpr const char* kFlashFile = "./flash.bin";
constexpr const char* kPartition1File = "./partition_1.bin";

// The daemon's step that fills in the platform's block.
constexpr std::string_view kPatching = "updatePlatformInfo";

struct Sum {
    uint32_t bytes = 0;
    uint32_t crc = 0;
};

class Inspector {
  public:
    explicit Inspector(Inspection& result)
        : result_(result), findings_(result.findings), run_(*result.run) {}

    void run() {
        read_table();
        Findings flash_findings;
        read_flash_file(flash_findings);
        run_.start_update();
        result_.update_begins = run_.has_begun();
        split_log();
        if (is_loaded_) {
            list_images();
            add_flash_findings(flash_findings);
            check_images(result_.images, findings_);
        } else if (const auto log = complaints(run_.loading_log()); !log.empty()) {
            findings_.add({Area::kTable, "table-unreadable", "partition_table.xml",
                           "cannot be read, or is no XML",
                           "the daemon loads nothing at all, not even flash.bin: no update starts",
                           log});
        }
        check_start();
        result_.versions = check_versions(run_, findings_);
    }

  private:
    void read_table() {
        find_links(kTableFile, Area::kTable, kTableFile);
        const auto xml = read_regular_file(table_path(), kLargestText);
        std::string why;
        if (xml) table_ = parse_partition_table(*xml, &why);
        if (!table_) return;
        if (table_->partitions.size() > kMostPartitions) {
            throw Failure("partition_table.xml has " +
                              count_of(table_->partitions.size(), "partition") + ", more than " +
                              std::to_string(kMostPartitions),
                          "give a table of a real flash, with tens of them");
        }
        places_ = check_table(*xml, *table_, findings_);
    }

    void find_links(const std::string& file, Area area, const std::string& place) {
        check_links(result_.bundle.directory, file, area, place, findings_);
    }

    // Before anything is loaded, so that no image is in memory twice.
    void read_flash_file(Findings& flash_findings) {
        const FileBytes flash = run_.updater().readFile(kFlashFile);
        flash_sum_ = sum_of({flash.data(), flash.size()});
        if (flash.empty() || !table_) return;
        result_.flash_file_crc = flash_sum_.crc;
        result_.boot_loader =
            check_boot_loader({flash.data(), flash.size()}, table_->boot_loader_offset.value_or(0),
                              run_.updater().getPlatformInfo(), flash_findings);
    }

    // The lines that belong to each reading of an image file, in the order of the readings. The
    // first lines belong to the table.
    void split_log() {
        logs_.emplace_back();
        for (const LogLine& line : run_.loading_log()) {
            if (line.function == "readFile" && line.text.starts_with("readFile Path : ")) {
                logs_.emplace_back();
            }
            logs_.back().push_back(line);
            is_loaded_ = is_loaded_ || line.text == "Partition XML Parsing Done.";
        }
    }

    std::vector<std::string> next_errors() {
        std::vector<LogLine> log;
        if (++reading_ < logs_.size()) log = logs_[reading_];
        // These are about what is in flash.bin.
        std::erase_if(log, [](const LogLine& line) { return line.function == kPatching; });
        return complaints(log);
    }

    void list_images() {
        PartitionValues values;
        for (size_t index = 0; index < table_->partitions.size(); ++index) {
            values.carry_over(table_->partitions[index]);
            ImageRow row;
            row.place = places_[index];
            row.id = static_cast<uint32_t>(values.img_id);
            row.name = values.partition_name;
            row.offset = static_cast<uint32_t>(values.offset);
            row.size = static_cast<uint32_t>(values.xml_size);
            row.file = values.image_path;
            if (!row.file.empty()) {
                row.errors = next_errors();
                find_links(row.file, Area::kImage, row.place);
            }
            row.is_erased = values.is_erasable && takes_next_erase(row);
            add(std::move(row));
        }
        add_fixed(kFlashImageId, "flash_IMAGE", kFlashFile);
        add_fixed(2, "partition_1_IMAGE", kPartition1File);
    }

    bool takes_next_erase(const ImageRow& row) {
        const auto& requests = run_.erase_requests();
        if (erase_ == requests.size() || requests[erase_].offset != row.offset ||
            requests[erase_].length != row.size) {
            return false;
        }
        result_.bytes_erased += requests[erase_++].length;
        return true;
    }

    void add_fixed(uint32_t id, const char* name, const char* file) {
        ImageRow row;
        row.place = file + 2;
        row.id = id;
        row.name = name;
        row.is_fixed = true;
        row.file = file + 2;
        row.errors = next_errors();
        find_links(row.file, Area::kFlashImage, row.place);
        add(std::move(row));
    }

    void add(ImageRow row) {
        row.is_served = ids_.emplace(row.id, true).second;
        const Sum sum = row.is_served ? served(row) : loaded(row);
        row.bytes = sum.bytes;
        row.crc = sum.crc;
        result_.images.push_back(std::move(row));
    }

    // As a co-processor is served it. Partitions that name the same file have the same bytes.
    Sum served(const ImageRow& row) {
        if (row.file.empty()) return {run_.image_size(row.id), 0};
        const std::string key = (row.is_fixed ? "fixed " : "table ") + row.file;
        const auto [known, is_new] = sums_.emplace(key, Sum{});
        if (!is_new) return {run_.image_size(row.id), known->second.crc};
        Sum& sum = known->second;
        run_.read_image(row.id, [&sum](std::span<const uint8_t> piece) {
            sum.bytes += static_cast<uint32_t>(piece.size());
            sum.crc = wire::crc32(piece, sum.crc);
        });
        return sum;
    }

    // The daemon loads it all the same.
    Sum loaded(const ImageRow& row) {
        if (row.file.empty()) return {};
        if (row.is_fixed && row.id == kFlashImageId) return flash_sum_;
        const auto [known, is_new] = unserved_sums_.emplace(row.file, Sum{});
        if (is_new) {
            const FileBytes bytes = run_.updater().readFile(row.file);
            known->second = sum_of({bytes.data(), bytes.size()});
        }
        return known->second;
    }

    static Sum sum_of(std::span<const uint8_t> bytes) {
        return {static_cast<uint32_t>(bytes.size()), wire::crc32(bytes)};
    }

    static std::string table_path() { return std::string(fw_image_dir) + partition_table_file; }

    void add_flash_findings(const Findings& flash_findings) {
        std::vector<std::string> log;
        for (const LogLine& line : run_.loading_log()) {
            if (line.function == kPatching && is_complaint(line)) {
                log.push_back(line.text);
            }
        }
        for (Finding finding : flash_findings.kept()) {
            finding.log = log;
            findings_.add(std::move(finding));
        }
        if (result_.bundle.facts.subtype != 0) {
            findings_.add({Area::kPlatform,
                           "subtype-not-supported",
                           "--subtype",
                           std::to_string(result_.bundle.facts.subtype),
                           "the daemon leaves the co-processor of such a device alone",
                           {}});
        }
    }

    void check_start() {
        if (result_.update_begins) return;
        const ImageRow* row = flash_image(result_);
        const bool is_shadowed = row != nullptr && !row->is_fixed;
        findings_.add({Area::kFlashImage,
                       "no-update",
                       row == nullptr ? kTableFile : row->place,
                       row == nullptr ? "nothing is loaded by it"
                       : is_shadowed  ? "image 1 is this partition's, and missing or empty"
                                      : "image 1 is missing or empty",
                       "the daemon switches the co-processor to HOST mode, erases " +
                           count_of(run_.erase_requests().size(), "partition") +
                           ", and then starts no update",
                       {}});
    }

    Inspection& result_;
    Findings& findings_;
    DaemonRun& run_;
    std::optional<PartitionTable> table_;
    std::vector<std::string> places_;
    std::vector<std::vector<LogLine>> logs_;
    bool is_loaded_ = false;
    size_t reading_ = 0;  // of logs_
    size_t erase_ = 0;    // of the erase requests
    Sum flash_sum_;
    std::map<uint32_t, bool> ids_;
    std::map<std::string, Sum> sums_;
    std::map<std::string, Sum> unserved_sums_;
};

}  // namespace

const ImageRow* flash_image(const Inspection& inspection) {
    for (const ImageRow& row : inspection.images) {
        if (row.id == kFlashImageId && row.is_served) return &row;
    }
    return nullptr;
}

void check_directory(const std::string& directory) {
    DIR* opened = ::opendir(directory.c_str());
    if (opened == nullptr) {
        throw Failure(in_quotes(directory) + " cannot be read as a directory: " + strerror(errno),
                      "give the directory that has partition_table.xml and flash.bin");
    }
    ::closedir(opened);
}

Inspection inspect(const Bundle& bundle) {
    check_directory(bundle.directory);
    aim_at(bundle);
    Inspection result;
    result.bundle = bundle;
    result.run = std::make_shared<DaemonRun>();
    Inspector(result).run();
    return result;
}

}  // namespace marlo_fw
