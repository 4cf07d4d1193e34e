// SPDX-License-Identifier: Apache-2.0
#include "sim/firmware_bundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>
#include <regex>

#include "sim/platform_block.h"
#include "sim/version_text.h"
#include "tests/sim/scripted_host.h"

namespace sim::test {
namespace {

using testing::HasSubstr;

std::string table(const std::string& partitions) {
    return "<t><mbr><Partition_1_SBL_Offset>12416</Partition_1_SBL_Offset></mbr><Bank_1>"
           "<Partition_table>" +
           partitions + "</Partition_table></Bank_1></t>";
}

std::string error_of(const FirmwareDirectory& directory) {
    try {
        directory.load();
    } catch (const FirmwareError& error) {
        return error.what();
    }
    return "";
}

TEST(FirmwareBundle, PatchesThePlatformBlockAndNothingElse) {
    FirmwareDirectory directory;
    const auto flash_of = [&](const PlatformFacts& facts) {
        return FirmwareBundle::load(directory.path(), "", facts).images[3].data;
    };
    const Bytes idp = flash_of({.hw_platform = "IDP\n", .platform_subtype = "0\n"});
    const Bytes wdp = flash_of({"WDP7\n", "123\n", "full\n"});
    // What readelf -l says of the boot loader: file offset 0x4fa4.
    constexpr size_t kBlock = 12416 + 0x4fa4;
    const auto block = [](const Bytes& b) { return Bytes(&b[kBlock], &b[kBlock + 20]); };
    EXPECT_EQ(block(idp), words({1, 0x22, 0xFFFFFFFF, 0xFFFFFFFF, 0}));
    EXPECT_EQ(block(wdp), words({0, 0x24, 0xFFFFFFFF, 0xFFFFFFFF, 12}));
    EXPECT_EQ(Bytes(&idp[kBlock + 20], &idp[kBlock + 24]), words({0x5a5a5a5a}));
    // The last character of the download mode is taken for its newline.
    EXPECT_EQ(expected_platform_block({"", "", "mini"}), (PlatformBlock{0, 0x22, ~0u, ~0u, 0}));
    EXPECT_TRUE(std::equal(idp.begin() + kBlock + 20, idp.end(), wdp.begin() + kBlock + 20));
}

// An ELF that is cut anywhere, or whose place is nonsense, is left alone.
TEST(FirmwareBundle, LeavesABrokenBootLoaderAlone) {
    const Bytes& flash = generated_firmware().images[3].data;
    const PlatformBlock block = expected_platform_block({});
    constexpr size_t kEnd = 12416 + 0x4fa4 + 20;
    for (size_t size = 0; size <= kEnd; size += size < 12700 ? 1 : 97) {
        Bytes cut(flash.begin(), flash.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(patch_platform_block(cut, 12416, block), 0) << size;
    }
    Bytes whole(flash.begin(), flash.begin() + kEnd);
    EXPECT_EQ(patch_platform_block(whole, 12416, block), 1);
    for (int32_t offset : {-1, 0, 12417, 0x7FFFFFFF}) {
        EXPECT_EQ(patch_platform_block(whole, offset, block), 0);
    }
}

TEST(FirmwareBundle, KeepsValuesOfThePartitionBefore) {
    FirmwareDirectory directory;
    directory.write("a", std::string(3, 'a'));
    directory.write("partition_table.xml",
                    table("<Partition><img_id>8</img_id><Offset>64</Offset><size>16</size>"
                          "<Image_Path>a</Image_Path></Partition>"
                          "<Partition><img_id>9</img_id><Offset>128</Offset>"
                          "<HostSpecificInfo><PartType>1</PartType></HostSpecificInfo></Partition>"
                          "<Partition><img_id>8</img_id><Image_Path>flash.bin</Image_Path>"
                          "<Offset>64</Offset></Partition>"
                          "<Partition><img_id>11</img_id><Image_Path>none</Image_Path></Partition>"
                          "<Partition><img_id>2</img_id><Image_Path>/a</Image_Path>"
                          "<Offset>4294967000</Offset></Partition>"));
    const FirmwareBundle bundle = directory.load();
    ASSERT_EQ(bundle.erase_ranges.size(), 1u);
    EXPECT_EQ(bundle.erase_ranges[0].offset, 128u);
    EXPECT_EQ(bundle.erase_ranges[0].size, 16u);
    std::vector<std::pair<uint32_t, size_t>> images;
    for (const Image& image : bundle.images) images.emplace_back(image.id, image.data.size());
    using Pair = std::pair<uint32_t, size_t>;
    EXPECT_THAT(images, testing::ElementsAre(Pair(8, 3), Pair(9, 3), Pair(2, 3), Pair(1, 120001)));
    EXPECT_TRUE(bundle.images[2].in_table);
    EXPECT_THAT(bundle.notes,
                testing::ElementsAre(HasSubstr("image flash.bin is never served: its id 8"),
                                     HasSubstr("image none is not there"),
                                     HasSubstr("partition_1.bin is never served: its id 2")));
}

TEST(FirmwareBundle, RefusesBrokenDirectoriesInWords) {
    const std::string erase = "<HostSpecificInfo><PartType>1</PartType></HostSpecificInfo>";
    const std::pair<std::string, const char*> tables[] = {
        {"", "not readable as XML"},
        {"<t/>", "no element Bank_1"},
        {table("<Partition><Partition_Name>P</Partition_Name><Offset>-16</Offset><size>17</size>" +
               erase + "</Partition>"),
         "partition P (offset 4294967280, 17 bytes) reaches beyond the end of the flash"},
        {table("<Partition><img_id>8</img_id><Offset>10</Offset><Image_Path>a</Image_Path>"
               "</Partition><Partition><img_id>9</img_id><Offset>8</Offset></Partition>"),
         "overlap"},
    };
    for (const auto& [xml, error] : tables) {
        FirmwareDirectory directory;
        directory.write("a", "aaa");
        directory.write("partition_table.xml", xml);
        EXPECT_THAT(error_of(directory), HasSubstr(error)) << xml;
    }
    FirmwareDirectory directory;
    directory.write("flash.bin", "");
    EXPECT_THAT(error_of(directory), HasSubstr("flash.bin (image 1) is missing, empty or no file"));
    std::filesystem::remove(directory.path() / "flash.bin");
    ASSERT_EQ(mkfifo((directory.path() / "flash.bin").c_str(), 0600), 0);
    EXPECT_THAT(error_of(directory), HasSubstr("flash.bin (image 1) is missing, empty or no file"));
}

TEST(FirmwareBundle, FallbackVersionFileOnlyWithoutTheFirst) {
    FirmwareDirectory directory;
    directory.write("fallback.txt", "\"apps_cochip\": \"older\"\n");
    EXPECT_EQ(directory.load().versions.apps, "TBX7700.APPS.1.2-00042-MARLO-1");
    std::filesystem::remove(directory.path() / "tbx7700_ver_info.txt");
    EXPECT_EQ(directory.load().versions.apps, "older");
}

TEST(VersionText, AgreesWithTheRegularExpression) {
    const std::regex expression("\"([^=]*)\": \"([^&]*)&?\"");
    const std::vector<std::string> pieces = {"\"", "\": \"", "&", "=", "x", " ", ":", "&\""};
    std::mt19937 numbers(7);
    for (int i = 0; i < 20000; ++i) {
        std::string line = "apps_cochip";
        for (size_t n = numbers() % 14; n > 0; --n) line += pieces[numbers() % pieces.size()];
        std::smatch match;
        const bool found = std::regex_search(line, match, expression);
        EXPECT_EQ(read_versions(line, "file").apps, found ? match[2].str() : "") << line;
    }
    EXPECT_THROW(read_versions(std::string(1 << 20, '"'), "file"), FirmwareError);
}

}  // namespace
}  // namespace sim::test
