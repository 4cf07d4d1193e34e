// SPDX-License-Identifier: Apache-2.0
// The partition table: any bytes as its file, and what a session then loads and erases.
#include <algorithm>
#include <cerrno>

#include "fuzz/harness.h"
#include "fwupdater/marlo_fw_updater.h"

using fuzz::must;
using fuzz::platform;

namespace {

constexpr size_t kSmallestPartition = std::string_view("<Partition/>").size();

// Says yes to each erase, and counts.
class Channel : public glink_interface {
  public:
    explicit Channel(int& erases) : erases_(erases) {}

    int register_cb(glink_data_callback, glink_error_callback) override { return 0; }
    int send_request(unsigned char* buf, unsigned int len) override {
        must(len == 28 && fuzz::word_at({buf, len}, 0) == dfu::DFU_SPCL_OPERATION_REQ,
             "not an erase but message %u of %u bytes", fuzz::word_at({buf, len}, 0), len);
        if (fuzz::word_at({buf, len}, 16) == dfu::SPCL_OP_RAW_FLASH_ERASE) {
            must(fuzz::word_at({buf, len}, 24) != 0, "nothing is erased");
            ++erases_;
        }
        return static_cast<int>(len);
    }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool) override { return 0; }
    void disconnect_interface() override {}

  private:
    int& erases_;
};

// How many of the partitions are to be erased.
int erasable(const PartitionTable& table) {
    PartitionValues values;
    return static_cast<int>(std::count_if(table.partitions.begin(), table.partitions.end(),
                                          [&](const PartitionElement& element) {
                                              values.carry_over(element);
                                              return values.is_erasable && values.xml_size != 0;
                                          }));
}

void check_session(const std::optional<PartitionTable>& table) {
    int erases = 0;
    marlo_fw_updater updater([&](glink_conn_config) { return std::make_unique<Channel>(erases); });
    updater.startMarloDownloaderWithCallback(nullptr);
    const bool is_loaded = table && (!table->has_root || table->has_bank);
    const int expected = is_loaded ? erasable(*table) : 0;
    updater.eraseAllRAWPartitionAndContinueDownload();
    // After each the co-processor says that it is done.
    dfu_spcl_cmd_response done = {};
    for (int answer = 0; answer < expected; ++answer) {
        must(erases == answer + 1, "%d erases, not %d", erases, answer + 1);
        updater.handleDFUSplCmdResposnse(&done);
    }
    must(erases == expected, "%d erases of %d", erases, expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::begin();
    fuzz::ExactCopy xml({data, size});
    std::string why;
    const auto table = parse_partition_table({xml.data(), xml.size()}, &why);
    must(!table || table->partitions.size() <= size / kSmallestPartition,
         "%zu bytes hold no %zu partitions", size, table ? table->partitions.size() : 0);
    must(!table || table->has_table || table->partitions.empty(), "partitions without a table");
    must(!table || table->has_root || !table->has_bank, "a bank without a root");

    const std::string directory = fw_image_dir;
    platform().file(directory + partition_table_file, fuzz::text_of({data, size}));
    platform().file(directory + "apps.mbn", "an image");
    check_session(table);
    must(platform().open_descriptors() == 0, "a file is left open");
    return 0;
}
