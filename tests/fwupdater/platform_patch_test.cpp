// SPDX-License-Identifier: Apache-2.0
#include <elf.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tests/fwupdater/recording.h"

namespace {

constexpr platform_info kInfo = {1, 0x24, 0xFFFFFFFF, 0xFFFFFFFF, 12};
const Bytes kBlock = from_hex("01000000 24000000 ffffffff ffffffff 0c000000");
constexpr int kElfOffset = 300;  // nothing aligns the boot loader inside the image

Bytes linked(const std::string& name) {
    std::ifstream file(std::string(ELF_DIRECTORY "/") + name + ".elf", std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

// File offset of a segment, which elf/segments.S has filled with its number.
size_t segment(const Bytes& elf, int index) {
    const Bytes filling(32, static_cast<uint8_t>(0x11 * (index + 1)));
    const auto found = std::search(elf.begin(), elf.end(), filling.begin(), filling.end());
    return static_cast<size_t>(found - elf.begin());
}

class PlatformPatch : public UpdaterTest {
  protected:
    // The image around `elf` as the updater leaves it.
    Bytes patch(const Bytes& elf, int offset = kElfOffset) {
        image("./partition_table.xml", "<t><mbr><Partition_1_SBL_Offset>" + std::to_string(offset) +
                                           "</Partition_1_SBL_Offset></mbr></t>");
        updater_.parsePartitionAndSaveFw(std::string(kImages) + "./partition_table.xml");
        Bytes flash = around(elf);
        updater_.updatePlatformInfo(flash, kInfo);
        return flash;
    }

    static Bytes around(const Bytes& elf) {
        Bytes flash(kElfOffset + elf.size(), 0x5A);
        std::copy(elf.begin(), elf.end(), flash.begin() + kElfOffset);
        return flash;
    }

    static Bytes with_block(Bytes elf, size_t offset) {
        std::copy(kBlock.begin(), kBlock.end(), elf.begin() + static_cast<ptrdiff_t>(offset));
        return around(elf);
    }
};

void put(Bytes& bytes, size_t offset, auto value) {
    std::memcpy(bytes.data() + offset, &value, sizeof(value));
}

}  // namespace

TEST_F(PlatformPatch, FillsTheBlockOfLinkedImages) {
    const Bytes second = linked("second32");
    EXPECT_EQ(patch(second), with_block(second, segment(second, 1)));
    EXPECT_EQ(logged("E updatePlatformInfo:"), 1U);
    EXPECT_EQ(logged("ELFCLASS32"), 1U);
    for (const char* line : {", debug_policy = 1", ", platform_id = 24", ", major_id = ffffffff",
                             ", minor_id = ffffffff", ", sub_type = c"}) {
        EXPECT_EQ(logged(line), 1U) << line;
    }
    const Bytes third = linked("third64");
    EXPECT_EQ(patch(third), with_block(third, segment(third, 2)));
    EXPECT_EQ(logged("ELFCLASS64"), 1U);
}

TEST_F(PlatformPatch, EveryMatchingSegmentIsFilledAndNoOther) {
    const Bytes twice = linked("twice32");
    Bytes expected = with_block(twice, segment(twice, 1));
    const size_t third = kElfOffset + segment(twice, 2);
    std::copy(kBlock.begin(), kBlock.end(), expected.begin() + static_cast<ptrdiff_t>(third));
    EXPECT_EQ(patch(twice), expected);
    // The first header and high addresses do not count.
    for (const char* name : {"first32", "high64"}) {
        EXPECT_EQ(patch(linked(name)), around(linked(name))) << name;
    }
    EXPECT_EQ(logged("debugPolicy_offset"), 2U);
    Bytes unknown = linked("second32");
    unknown[EI_CLASS] = 3;  // read as if it were 32 bit
    EXPECT_EQ(patch(unknown), with_block(unknown, segment(unknown, 1)));
    EXPECT_EQ(logged("Invalid ELF"), 1U);
}

TEST_F(PlatformPatch, BlockMayEndWithTheImageButNotBeyond) {
    Bytes elf = linked("second32");
    const size_t entry = sizeof(Elf32_Ehdr) + sizeof(Elf32_Phdr) + offsetof(Elf32_Phdr, p_offset);
    const auto last = static_cast<uint32_t>(elf.size() - kBlock.size());
    put(elf, entry, last);
    EXPECT_EQ(patch(elf), with_block(elf, last));
    for (const uint32_t outside : {last + 1, last + 20, 0xFFFFFFFFU, 0xFFFFFFF0U}) {
        put(elf, entry, outside);
        EXPECT_EQ(patch(elf), around(elf)) << outside;
    }
    EXPECT_EQ(logged("debug policy block at ffffffff lies outside"), 1U);
}

TEST_F(PlatformPatch, EveryRefusedShapeIsLeftAsItIs) {
    const Bytes good = linked("second32");
    for (const int offset :
         {-1, INT_MIN, INT_MAX, kElfOffset - 1, kElfOffset + static_cast<int>(good.size()) - 3}) {
        EXPECT_EQ(patch(good, offset), around(good)) << offset;
    }
    EXPECT_EQ(logged("Unknown File Type"), 5U);

    const auto expect_unchanged = [this](Bytes elf, size_t offset, auto value) {
        put(elf, offset, value);
        EXPECT_EQ(patch(elf), around(elf)) << offset << ": " << value;
    };
    expect_unchanged(good, offsetof(Elf32_Ehdr, e_phnum), uint16_t{1});
    expect_unchanged(good, offsetof(Elf32_Ehdr, e_phoff), 0xFFFFFFFFU);
    expect_unchanged(good, offsetof(Elf32_Ehdr, e_phoff), static_cast<uint32_t>(good.size()) - 95U);
    expect_unchanged(good, offsetof(Elf32_Ehdr, e_phnum), uint16_t{0xFFFF});
    for (const auto& [name, size] : {std::pair{"second32", 51U}, {"third64", 63U}}) {
        Bytes header_cut = linked(name);
        header_cut.resize(size);
        EXPECT_EQ(patch(header_cut), around(header_cut)) << name;
    }
    EXPECT_EQ(logged("lie outside the image"), 5U);

    Bytes nothing;
    updater_.updatePlatformInfo(nothing, kInfo);
    EXPECT_EQ(logged("firmware resource is empty"), 1U);
}

TEST_F(PlatformPatch, PlatformIsGatheredFromTheKernelsTexts) {
    struct Case {
        const char *hardware, *subtype, *dump;
        std::array<uint32_t, 5> expected;
    };
    constexpr uint32_t kNone = 0xFFFFFFFF;
    for (const Case& c : {Case{"WDP\n", "12\n", "mini\n", {1, 0x24, kNone, kNone, 12}},
                          {"IDP\n", "123\n", "full\n", {0, 0x22, kNone, kNone, 12}},
                          {"MTP\n", "x\n", "full mini\n", {1, 0x22, kNone, kNone, 0}},
                          {"WD", "7", "", {0, 0x22, kNone, kNone, 7}},
                          {"", "", "mini", {0, 0x22, kNone, kNone, 0}}}) {
        scripted::platform().file("/sys/devices/soc0/hw_platform", c.hardware);
        scripted::platform().file("/sys/devices/soc0/platform_subtype_id", c.subtype);
        scripted::platform().file("/sys/kernel/dload/dload_mode", c.dump);
        const auto [policy, platform, major, minor, sub_type] = updater_.getPlatformInfo();
        EXPECT_EQ((std::array{policy, platform, major, minor, sub_type}), c.expected) << c.hardware;
    }
    EXPECT_EQ(logged("HW Platform = WDP\n"), 1U);
    EXPECT_EQ(logged("Platform type = 12\n"), 2U);
    EXPECT_EQ(logged(", full mini\n"), 1U);
    EXPECT_EQ(logged("plat_info.debug_policy: 1\n"), 2U);
}
