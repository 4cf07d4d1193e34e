// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/partition_table.h"

#include <gtest/gtest.h>

#include <string_view>

namespace {

std::optional<PartitionTable> parse(std::string_view xml) {
    std::string why;
    return parse_partition_table({reinterpret_cast<const uint8_t*>(xml.data()), xml.size()}, &why);
}

}  // namespace

TEST(PartitionTable, AbsentChildrenKeepTheValuesBefore) {
    const auto table = parse(R"(<?xml version="1.0"?><r><Bank_1><Partition_table>
        <Partition><Offset>4096</Offset><img_id>5</img_id><Partition_Name>a&amp;b</Partition_Name>
            <Image_Path>a.bin</Image_Path><size>100</size>
            <HostSpecificInfo><PartType>2</PartType></HostSpecificInfo></Partition>
        <Partition><size>-7</size></Partition>
        <Partition><img_id>many</img_id><Partition_Name/><Image_Path></Image_Path>
            <HostSpecificInfo/></Partition>
        </Partition_table></Bank_1></r>)");
    ASSERT_TRUE(table);
    ASSERT_EQ(table->partitions.size(), 3U);
    PartitionValues values;
    values.carry_over(table->partitions[0]);
    EXPECT_EQ(values.partition_name, "a&b");
    EXPECT_TRUE(values.is_erasable);
    values.carry_over(table->partitions[1]);
    EXPECT_EQ(values.offset, 4096);
    EXPECT_EQ(values.img_id, 5);
    EXPECT_EQ(values.image_path, "a.bin");
    EXPECT_EQ(values.xml_size, -7);
    EXPECT_FALSE(values.is_erasable);
    values.carry_over(table->partitions[2]);
    EXPECT_EQ(values.img_id, 0);
    EXPECT_EQ(values.partition_name, "");
    EXPECT_EQ(values.image_path, "");
    EXPECT_EQ(values.xml_size, -7);
}

TEST(PartitionTable, TellsHowFarTheDocumentGoes) {
    EXPECT_FALSE(parse(""));
    EXPECT_FALSE(parse("<r><Bank_1></r>"));
    std::string deep;
    for (int level = 0; level < 100'000; ++level) {
        deep += "<r>";
    }
    EXPECT_FALSE(parse(deep));
    EXPECT_FALSE(parse("<r><bank_1/></r>")->has_bank);
    const auto table = parse(
        "<r><mbr><Partition_1_SBL_Offset>-12</Partition_1_SBL_Offset></mbr>"
        "<Bank_1><Partition_table><no_of_partitions>1</no_of_partitions>"
        "<Partition/><Partition/></Partition_table></Bank_1></r>");
    EXPECT_EQ(table->boot_loader_offset, -12);
    EXPECT_EQ(table->no_of_partitions, "1");
    EXPECT_EQ(table->partitions.size(), 2U);
}

TEST(PartitionTable, TenMegabytesAreReadOrRefused) {
    std::string nested;
    while (nested.size() < 10'000'000) {
        nested += "<a>";
    }
    EXPECT_FALSE(parse(nested));
    std::string many = "<r><Bank_1><Partition_table>";
    size_t count = 0;
    for (; many.size() < 10'000'000; ++count) {
        many += "<Partition><img_id>7</img_id></Partition>";
    }
    const auto table = parse(many + "</Partition_table></Bank_1></r>");
    ASSERT_TRUE(table);
    EXPECT_EQ(table->partitions.size(), count);
}
