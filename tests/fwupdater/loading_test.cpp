// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <map>

#include "fwupdater/image_file.h"
#include "tests/allocation_limit.h"
#include "tests/fwupdater/recording.h"

namespace {

std::string partition(const std::string& children) {
    return "<Partition>" + children + "</Partition>";
}

class Loading : public UpdaterTest {
  protected:
    uint32_t load() {
        return updater_.parsePartitionAndSaveFw(std::string(kImages) + "./partition_table.xml");
    }

    Bytes read(const char* path) {
        const FileBytes bytes = updater_.readFile(path);
        return {bytes.begin(), bytes.end()};
    }
};

}  // namespace

TEST_F(Loading, PartitionsThenFixedImages) {
    table("<no_of_partitions>1</no_of_partitions>" +
          partition("<img_id>7</img_id><Partition_Name>seven</Partition_Name>") +
          partition("<img_id>8</img_id><Image_Path>/eight.bin</Image_Path>") +
          partition("<img_id>9</img_id>") +
          partition("<img_id>10</img_id><Image_Path>missing.bin</Image_Path>"));
    image("/eight.bin", "12345678");
    image("./flash.bin", "flash");
    image("./partition_1.bin", "part1");
    start();
    std::string told;
    for (const uint32_t id : {7U, 8U, 9U, 10U, 1U, 2U, 3U, 0xFFFFFFFFU}) {
        updater_.sendmarloImageInfoRes(id);
        told += recording_.take().front() + "\n";
    }
    EXPECT_EQ(told,
              "send 4: 7 0 0\nsend 4: 8 8 0\nsend 4: 9 8 0\nsend 4: 10 0 0\n"
              "send 4: 1 5 0\nsend 4: 2 5 0\nsend 4: 3 0 0\nsend 4: 4294967295 0 0\n");
    updater_.sendmarloImageOffsetRes(7, 0, 4);  // of a partition without an image
    EXPECT_EQ(recording_.take().back(), "send 6: 7 0 4");
    EXPECT_EQ(logged("firmware seven resource Size : 8"), 2U);
    EXPECT_EQ(logged("readFile Path : /vendor/firmware_mnt/image//eight.bin"), 2U);
    EXPECT_EQ(logged("open /vendor/firmware_mnt/image//eight.bin"), 1U);  // and held once
    EXPECT_EQ(logged("firmware flash.bin resource Size : 5"), 1U);
    EXPECT_EQ(logged("File open failed : /vendor/firmware_mnt/image/missing.bin"), 1U);
    EXPECT_EQ(scripted::platform().open_descriptors(), 0);
}

TEST_F(Loading, IncompleteDocuments) {
    image("./flash.bin", "flash");
    EXPECT_EQ(load(), 0U);
    image("./partition_table.xml", "not XML");
    EXPECT_EQ(load(), 0U);
    EXPECT_EQ(logged("XML Config File Not Opened"), 2U);
    EXPECT_EQ(logged("partition_table.xml cannot be opened: No such file or directory"), 1U);
    EXPECT_EQ(logged("partition_table.xml is no partition table: Error=XML_ERROR_"), 1U);
    image("./partition_table.xml", std::string(kLargestText + 1, ' '));
    EXPECT_EQ(load(), 0U);
    EXPECT_EQ(logged("partition_table.xml has 16777217 bytes, more than 16777216"), 1U);
    image("./partition_table.xml", "<t/>");
    EXPECT_EQ(load(), 0U);
    EXPECT_EQ(logged("bank_1_node is NULL"), 1U);
    EXPECT_FALSE(updater_.checkForFlashbin());
    image("./partition_table.xml", "<t>" + std::string(100'000, ' ') + "</t>");
    {
        const AllocationLimit limit(100'007);  // the file, but no copy of it
        EXPECT_EQ(load(), 0U);
    }
    EXPECT_EQ(logged(", no memory for the partitions of "), 1U);
    for (const char* without_table : {"<!---->", "<t><Bank_1/></t>"}) {
        image("./partition_table.xml", without_table);
        EXPECT_EQ(load(), 1U) << without_table;
        EXPECT_TRUE(updater_.checkForFlashbin()) << without_table;
        updater_.truncateFwResources();
    }
}

TEST_F(Loading, AnImageThatIsTooLargeIsEmpty) {
    constexpr int64_t kGibibyte = int64_t{1} << 30;
    const std::map<std::string, int64_t> sizes = {
        {"./flash.bin", kGibibyte}, {"large.bin", kGibibyte}, {"larger.bin", 4 * kGibibyte}};
    table(partition("<img_id>7</img_id><Image_Path>large.bin</Image_Path>") +
          partition("<img_id>8</img_id><Image_Path>larger.bin</Image_Path>") +
          partition("<img_id>9</img_id><Image_Path>small.bin</Image_Path>"));
    image("small.bin", "small");
    for (const auto& [name, size] : sizes) {
        scripted::platform().file_size(kImages + name, size);
    }
    {
        const AllocationLimit limit(kGibibyte - 1);
        start();
    }
    for (const char* name : {"./flash.bin", "large.bin"}) {
        EXPECT_EQ(logged(std::string("no memory for the 1073741824 bytes of ") + kImages + name),
                  1U);
    }
    EXPECT_EQ(logged(std::string(kImages) + "larger.bin has 4294967296 bytes, more than"), 1U);
    updater_.marloFirmwareUpdateReq();
    expect({"error AON Flash bin file is empty or not present"});
    std::string told;
    for (const uint32_t id : {7U, 8U, 9U}) {
        updater_.sendmarloImageInfoRes(id);
        told += recording_.take().front() + "\n";
    }
    EXPECT_EQ(told, "send 4: 7 0 0\nsend 4: 8 0 0\nsend 4: 9 5 0\n");
    updater_.sendmarloImageOffsetRes(7, 0, 4);
    EXPECT_EQ(recording_.take().back(), "send 6: 7 0 4");
    EXPECT_EQ(scripted::platform().open_descriptors(), 0);
}

#if SIZE_MAX == UINT32_MAX  // elsewhere every image fits
TEST_F(Loading, AnImageBeyondTheAddressSpaceIsEmpty) {
    image("large", "contents");
    for (const uint32_t size : {0x80000000U, 0xFFE00001U, UINT32_MAX}) {
        scripted::platform().file_size(std::string(kImages) + "large", size);
        EXPECT_EQ(read("large"), Bytes()) << size;
        EXPECT_EQ(logged("no memory for the " + std::to_string(size) + " bytes of "), 1U);
    }
}
#endif

TEST_F(Loading, AnImageOfLargePagesIsReadLikeAnyOther) {
    const std::string content = std::string(static_cast<size_t>(kLargePage), 'a') + "bcd";
    const std::string path = std::string(kImages) + "large";
    image("large", content);
    EXPECT_EQ(read("large"), Bytes(content.begin(), content.end()));
    scripted::platform().script_read(path, {Bytes(3, 'a')});
    scripted::platform().script_read(path, {});
    EXPECT_EQ(read("large"), Bytes(3, 'a'));
    const AllocationLimit limit(content.size() - 1);
    EXPECT_TRUE(updater_.readFile("large").empty());
    EXPECT_EQ(logged("no memory for the 2097155 bytes of " + path), 1U);
}

TEST_F(Loading, WhatIsNoReadableRegularFileIsEmpty) {
    const std::string good = std::string(kImages) + "good";
    image("good", std::string(100'000, 'g'));
    scripted::platform().script_read(good, scripted::failure(EINTR));
    scripted::platform().script_read(good, {Bytes(3, 'g')});
    EXPECT_EQ(read("good"), Bytes(100'000, 'g'));
    image("odd", "content");
    for (const int mode : {S_IFDIR, S_IFIFO, S_IFCHR}) {
        scripted::platform().file_mode(std::string(kImages) + "odd",
                                       static_cast<unsigned>(mode) | 0644U);
        EXPECT_TRUE(updater_.readFile("odd").empty()) << mode;
    }
    scripted::platform().script_read(good, {Bytes(3, 'g')});
    scripted::platform().script_read(good, {});  // it has become shorter meanwhile
    EXPECT_EQ(read("good"), Bytes(3, 'g'));
    EXPECT_EQ(logged("only 3 of the 100000 bytes of " + good), 1U);
    scripted::platform().script_read(good, scripted::failure(EIO));
    EXPECT_TRUE(updater_.readFile("good").empty());
    EXPECT_EQ(logged(good + " cannot be read: Input/output error"), 1U);
    EXPECT_FALSE(read_regular_file(good, 99'999).has_value());
    EXPECT_EQ(logged(good + " has 100000 bytes, more than 99999"), 1U);
    const AllocationLimit limit(99'999);
    EXPECT_TRUE(updater_.readFile("good").empty());
    EXPECT_EQ(logged("no memory for the 100000 bytes of " + good), 1U);
    EXPECT_EQ(logged("/vendor/firmware_mnt/image/odd is not a regular file"), 3U);
    EXPECT_EQ(logged("File open failed : /vendor/firmware_mnt/image/odd"), 3U);
    EXPECT_EQ(scripted::platform().open_descriptors(), 0);
}
