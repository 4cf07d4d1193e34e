// SPDX-License-Identifier: Apache-2.0
// Each finding for its cause, and no other with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <set>

#include "tests/marlo_fw/test_bundle.h"
#include "tools/marlo_fw/inspect.h"

namespace marlo_fw::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Codes = std::set<std::string>;
using Change = std::function<void(const TestBundle&)>;

Codes codes_of(const Findings& findings) {
    Codes codes;
    for (const Finding& finding : findings.kept()) codes.insert(finding.code);
    return codes;
}

struct Case {
    Change change;
    Codes expected;
};

void expect_findings(const std::vector<Case>& cases) {
    for (size_t index = 0; index < cases.size(); ++index) {
        const TestBundle bundle;
        cases[index].change(bundle);
        EXPECT_EQ(codes_of(inspect(bundle.bundle()).findings), cases[index].expected)
            << "case " << index;
    }
}

Case in_table(const std::string& from, const std::string& to, const Codes& expected) {
    return {[=](const TestBundle& bundle) { bundle.edit(kTable, from, to); }, expected};
}

// `name` is a link to `target`, below which its bytes are where that is outside the directory.
Case with_link(const std::string& name, const std::string& target, const Codes& expected) {
    return {[=](const TestBundle& bundle) {
                const auto link = bundle.directory() / name;
                std::filesystem::copy_file(link, bundle.root() / "outside");
                bundle.remove(name);
                const bool is_absolute = target == "/";
                std::filesystem::create_symlink(
                    is_absolute ? (bundle.root() / "outside").string() : target, link);
            },
            expected};
}

Case in_versions(const std::string& from, const std::string& to, const Codes& expected) {
    return {[=](const TestBundle& bundle) { bundle.edit(kVersionText, from, to); }, expected};
}

Case in_boot_loader(size_t at, const std::string& bytes, const Codes& expected) {
    return {[=](const TestBundle& bundle) { bundle.patch_boot_loader(at, bytes); }, expected};
}

const std::string kHost = "<HostSpecificInfo><PartType>1</PartType></HostSpecificInfo>";
const std::string kAppsVersion = "TBX7700.APPS.1.2-00042-MARLO-1";
// The 32-bit ELF header's fields, and the program headers behind it; that of the block has
// number 3.
constexpr size_t kClass = 4, kByteOrder = 5, kTableAt = 28, kEntrySize = 42, kCount = 44;
constexpr size_t kEntry0 = 52, kEntry2 = 52 + 2 * 32, kEntry3 = 52 + 3 * 32;
constexpr size_t kFileOffset = 4, kAddress = 8, kFileSize = 16;
const std::string kBlockAddress = word(0x20147FA4);

}  // namespace

TEST(Findings, OfTheTablesValues) {
    const std::string odd = "number-misread";
    expect_findings({
        in_table("<img_id>3</img_id>", "", {"value-carried-over", "id-used-twice"}),
        in_table("<img_id>10</img_id>", "", {"value-missing"}),
        in_table("<Image_Path>marker.bin</Image_Path>", "", {}),
        in_table("<Image_Path>./dsp.mbn</Image_Path>", "", {"value-carried-over"}),
        in_table("<img_id>3<", "<img_id>7<", {"id-used-twice"}),
        in_table("<img_id>3<", "<img_id>2<", {"fixed-image-shadowed"}),
        in_table("<size>131072<", "<size>131073<", {"flash-ranges-overlap"}),
        in_table("<size>131072<", "<size>999<", {"image-too-large"}),
        in_table("<Offset>1048576<", "<Offset>0x100000<", {odd}),
        in_table("<Offset>1048576<", "<Offset>1048576K<", {odd}),
        in_table("<Offset>1048576<", "<Offset> 1048576\n<", {}),
        in_table("<Offset>1048576<", "<Offset>-65536<", {odd}),
        in_table("<Offset>1048576<", "<Offset>-1<", {odd, "flash-range-too-high"}),
        in_table("<Offset>1048576<", "<Offset>4293918720<", {odd}),
        in_table("<Offset>1048576<", "<Offset><!-- 1 MiB -->1048576<", {"text-overlooked"}),
        in_table("<PartType>0<", "<PartType>none<", {odd}),
        in_table("12416<", "12417<", {"no-elf-header"}),
        in_table("<Partition_1_SBL_Offset>12416</Partition_1_SBL_Offset>", "",
                 {"value-missing", "no-elf-header"}),
        in_table("<no_of_partitions>7<", "<no_of_partitions>8<", {"partition-count-differs"}),
        in_table("apps.bin", "/apps.bin", {"image-path-odd"}),
        in_table("apps.bin", "../image/apps.bin", {"image-path-odd"}),
        in_table("apps.bin", "apps.bin ", {"image-path-odd", "image-unreadable"}),
        in_table("<Image_Path>apps.bin</Image_Path>", "<Image_Path name='apps.bin'/>",
                 {"attribute-overlooked"}),
        in_table(kHost, "<HostSpecificInfo PartType='1'/>",
                 {"attribute-overlooked", "value-missing"}),
    });
}

TEST(Findings, OfTheTablesStructure) {
    const std::string dsp = "<Partition_Name>DSP</Partition_Name>";
    std::string look_alikes;
    for (int count = 0; count < 300000; ++count) look_alikes += "<Bank_11/>";
    expect_findings({
        in_table(dsp, dsp + dsp, {"element-repeated"}),
        in_table("<no_of_partitions>", "<size>1</size><no_of_partitions>", {"element-misplaced"}),
        in_table("PartType>2</PartType", "partType>2</partType",
                 {"element-misspelt", "value-missing"}),
        in_table("</Partition_table>", "<extra><Partition/></extra></Partition_table>",
                 {"element-misplaced"}),
        in_table(kHost, "<Host><PartType>1</PartType></Host>", {"element-misplaced"}),
        in_table("</Bank_1>", "</Bank_1><Bank_2><Partition_table/></Bank_2>", {}),
        in_table("<mbr>", look_alikes + "<mbr>", {}),  // minutes, if each is compared to all
        in_table("</flash_layout>", "</flash_layout><flash_layout/>", {"element-repeated"}),
        in_table(dsp, dsp + "img_id>4", {"text-overlooked"}),
        in_table(dsp, "<Partition_Name>D&sp;</Partition_Name>", {"entity-unknown"}),
        in_table("virtual", "&bogus; <virtual>", {}),  // in a comment
        in_table(dsp, "<Partition_Name><![CDATA[&bogus;]]></Partition_Name>", {}),
        in_table(dsp, "<Partition_Name><![CDATA[<!--]]></Partition_Name><x>&bogus;</x>",
                 {"entity-unknown"}),
        in_table(dsp, dsp + "<x y='<!--'/><x>&bogus;</x>", {"entity-unknown"}),
        in_table("</flash_layout>", "</flash_layout></flash_layout>x", {"end-tag-needless"}),
        in_table("</flash_layout>", "</flash_layout>" + std::string(1, '\0') + "x", {"nul-byte"}),
    });
}

TEST(Findings, OfATableWithoutPartitions) {
    expect_findings({
        {[](auto& bundle) {
             bundle.write(kTable,
                          "<t><mbr><Partition_1_SBL_Offset>12416</Partition_1_SBL_Offset>"
                          "</mbr><Bank_1/></t>");
         },
         {"no-partitions"}},
        {[](auto& bundle) { bundle.write(kTable, "<!-- nothing -->"); },
         {"no-root", "no-elf-header"}},
        {[](auto& bundle) { bundle.edit(kTable, "<Partition_table>", "<Partition_tabled>"); },
         {"table-unreadable", "no-update"}},
        {[](auto& bundle) { bundle.remove(kTable); }, {"table-unreadable", "no-update"}},
        {[](auto& bundle) {
             bundle.write(kTable,
                          "<t><mbr><Partition_1_SBL_Offset>12416</Partition_1_SBL_Offset>"
                          "</mbr></t>");
         },
         {"no-bank", "no-update"}},
    });
}

TEST(Findings, OfTheImages) {
    expect_findings({
        {[](auto& bundle) { bundle.write("apps.bin", ""); }, {"image-empty"}},
        {[](auto& bundle) { bundle.remove("apps.bin"); }, {"image-unreadable"}},
        {[](auto& bundle) { bundle.remove("partition_1.bin"); }, {"image-unreadable"}},
        {[](auto& bundle) {
             bundle.remove("apps.bin");
             std::filesystem::create_directory(bundle.directory() / "apps.bin");
         },
         {"image-unreadable"}},
        {[](auto& bundle) {
             bundle.remove("apps.bin");
             mkfifo((bundle.directory() / "apps.bin").c_str(), 0600);
         },
         {"image-unreadable"}},
        {[](auto& bundle) {
             std::filesystem::resize_file(bundle.directory() / "apps.bin", uint64_t{1} << 32);
         },
         {"image-unreadable"}},
        with_link("apps.bin", "/", {"link-leads-elsewhere"}),
        with_link("apps.bin", "../outside", {"link-leads-elsewhere"}),
        with_link("apps.bin", "dsp.mbn", {}),
        with_link("apps.bin", "apps.bin", {"image-unreadable"}),
        with_link("flash.bin", "/", {"link-leads-elsewhere"}),
        with_link(kTable, "/", {"link-leads-elsewhere"}),
        with_link(kVersionText, "/", {"link-leads-elsewhere"}),
        {[](auto& bundle) {
             bundle.write("../apps.bin", "x");
             std::filesystem::create_directory_symlink("../", bundle.directory() / "up");
             bundle.edit(kTable, "apps.bin", "up/apps.bin");
         },
         {"link-leads-elsewhere"}},
        {[](auto& bundle) { bundle.write("flash.bin", ""); }, {"image-empty", "no-update"}},
        {[](auto& bundle) { bundle.remove("flash.bin"); }, {"image-unreadable", "no-update"}},
        {[](auto& bundle) { bundle.edit(kTable, "<img_id>8<", "<img_id>1<"); },
         {"fixed-image-shadowed", "no-update"}},
    });
}

TEST(Findings, OfTheBootLoader) {
    expect_findings({
        in_boot_loader(0, "?", {"no-elf-header"}),
        in_boot_loader(kClass, "\x03", {"elf-class-invalid"}),
        in_boot_loader(kByteOrder, "\x02", {"elf-byte-order"}),
        in_boot_loader(kEntrySize, "\x28", {"elf-entry-size"}),
        in_boot_loader(kTableAt, word(0x7FFFFFF0), {"elf-headers-outside"}),
        in_boot_loader(kCount, "\x01", {"no-debug-policy-segment"}),
        in_boot_loader(kEntry3 + kAddress, word(0), {"no-debug-policy-segment"}),
        in_boot_loader(kEntry2 + kAddress, kBlockAddress, {"several-debug-policy-segments"}),
        in_boot_loader(kEntry3 + kFileOffset, word(0x5FF0), {"block-outside"}),
        in_boot_loader(kEntry3 + kFileOffset, word(40), {"block-over-headers"}),
        in_boot_loader(kEntry3 + kFileSize, word(19), {"segment-too-small"}),
        in_boot_loader(kEntry0 + kAddress, kBlockAddress, {"first-header-skipped"}),
        in_boot_loader(kEntry3 + kFileSize, word(~0U), {"segment-outside"}),
        in_boot_loader(kEntry2 + kFileSize, word(0x2001), {"segment-outside"}),
        in_boot_loader(kEntry2 + kFileSize, word(0x2000), {}),
        in_boot_loader(kEntry3, word(4), {"segment-not-loaded"}),
    });
}

// The same boot loader with the layout of 64 bits: one segment before that of the block.
TEST(Findings, OfA64BitBootLoader) {
    const auto quad = [](uint32_t low, uint32_t high) { return word(low) + word(high); };
    const auto segment = [&](const std::string& address, uint32_t high_offset) {
        return quad(1, 0) + quad(0x400, high_offset) + address + quad(0, 0) + quad(20, 0) +
               quad(20, 0) + quad(0, 0);
    };
    const auto loader = [&](const std::string& address, uint32_t table_high, uint32_t block_high,
                            uint32_t first_high = 0) {
        return word(0x464C457F) + std::string("\x02\x01", 2) + std::string(26, '\0') +
               quad(64, table_high) + quad(0, 0) + word(0) + word(0x00380040) + word(2) +
               std::string(4, '\0') + segment(quad(0, 0), first_high) +
               segment(address, block_high);
    };
    const std::string block = quad(0x20147FA4, 0);
    expect_findings({
        in_boot_loader(0, loader(block, 0, 0), {}),
        in_boot_loader(0, loader(quad(0x20147FA4, 1), 0, 0), {"no-debug-policy-segment"}),
        in_boot_loader(0, loader(block, 1, 0), {"elf-offset-cut"}),
        in_boot_loader(0, loader(block, 0, 1), {"elf-offset-cut"}),
        in_boot_loader(0, loader(block, 0, 0, 1), {"segment-outside"}),
    });
}

TEST(Findings, OfTheVersions) {
    const std::string line = "\"apps_cochip\": \"" + kAppsVersion + "\"";
    expect_findings({
        in_versions(kAppsVersion, "", {"version-empty"}),
        in_versions(kAppsVersion, std::string(99, 'x'), {}),
        in_versions(kAppsVersion, std::string(100, 'x'), {"version-never-matches"}),
        in_versions(kAppsVersion, "1.0&", {"version-line-misread"}),
        in_versions(kAppsVersion, "1\\u002e0", {"version-line-misread"}),
        in_versions(": \"" + kAppsVersion, ":\"" + kAppsVersion,
                    {"version-line-misread", "version-missing"}),
        in_versions("\n    \"btfw", " \"btfw", {"version-line-misread"}),
        in_versions("apps_cochip", "apps_chip", {"version-missing"}),
        in_versions(line, line + ",\n" + line, {"version-repeated"}),
        in_versions(line, line + ", " + line, {"version-repeated"}),
        in_versions(line, "// " + line, {"version-line-commented"}),
        in_versions(line, "# " + line, {"version-line-commented"}),
        in_versions("{\n", "/* {\n", {"version-line-commented"}),
        in_versions("{\n", "/* {\n*/\n", {}),
        in_versions("{\n", "{ \"comment\": \"apps_cochip\",\n",
                    {"version-line-misread", "version-repeated"}),
        in_versions("{\n", "{" + std::string(5000, ' ') + "\n", {"version-file-odd"}),
    });
}

TEST(Findings, TellPlaceValueConsequenceAndLog) {
    const TestBundle bundle;
    bundle.edit(kTable, "<size>131072</size>", "");
    bundle.remove("apps.bin");
    bundle.patch_boot_loader(0, "?");
    const Inspection inspection = inspect(bundle.bundle());
    const std::vector<Finding>& findings = inspection.findings.kept();
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[0].element, "partition_table.xml:17: partition 2 (\"APPS\")");
    EXPECT_EQ(findings[0].consequence, "the daemon takes 65536, as of the partition before it");
    EXPECT_THAT(findings[1].log, ElementsAre("Unknown File Type"));
    EXPECT_EQ(findings[2].value, "\"apps.bin\"");
    EXPECT_THAT(findings[2].log,
                ElementsAre(HasSubstr("apps.bin cannot be opened: No such file or directory"),
                            HasSubstr("File open failed : ")));
}

TEST(Findings, NameWhatKeepsTheUpdateFromBeginning) {
    const std::pair<Change, std::string> cases[] = {
        {[](auto& bundle) { bundle.remove(kTable); }, "partition_table.xml"},
        {[](auto& bundle) { bundle.remove("flash.bin"); }, "flash.bin"},
        {[](auto& bundle) { bundle.edit(kTable, "<img_id>8<", "<img_id>1<"); }, "DSP_COPY"},
    };
    for (const auto& [change, cause] : cases) {
        const TestBundle bundle;
        change(bundle);
        const Inspection inspection = inspect(bundle.bundle());
        const Finding& last = inspection.findings.kept().back();
        EXPECT_EQ(last.code, "no-update");
        EXPECT_THAT(last.element, HasSubstr(cause));
    }
}

TEST(Findings, OfTheFallbackVersionFile) {
    const TestBundle bundle;
    bundle.remove(kVersionText);
    const Inspection without = inspect(bundle.bundle());
    EXPECT_EQ(codes_of(without.findings), Codes{"version-file-missing"});
    EXPECT_EQ(without.versions.file, "");
    std::filesystem::create_directory(bundle.root() / "verinfo");
    bundle.write("../verinfo/ver_info.txt", intact_files().at(kVersionText));
    const Inspection with = inspect(bundle.bundle());
    EXPECT_EQ(codes_of(with.findings), Codes{"version-file-missing"});
    EXPECT_EQ(with.versions.shipped.apps_cochip, kAppsVersion);
}

}  // namespace marlo_fw::test
