// SPDX-License-Identifier: Apache-2.0
#include "sim/firmware_generator.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

// The boot loader, an ELF file made by the linker at build time.
extern "C" {
extern const char sim_boot_loader_start[];
extern const char sim_boot_loader_end[];
}

namespace sim {

namespace {

namespace fs = std::filesystem;

constexpr size_t kBootLoaderOffset = 12416;  // Partition_1_SBL_Offset below
constexpr size_t kFlashImageSize = 120001;

// Values that a Partition leaves out are those of the Partition before it: none is left out but for
// an image that neither has. A partition without image stands first, or has an empty Image_Path.
constexpr const char* kPartitionTable = R"(<?xml version="1.0" encoding="utf-8"?>
<!-- Generated: the flash of a virtual co-processor. -->
<flash_layout>
    <mbr>
        <Partition_1_SBL_Offset>12416</Partition_1_SBL_Offset>
    </mbr>
    <Bank_1>
        <Partition_table>
            <no_of_partitions>7</no_of_partitions>
            <Partition>
                <Partition_Name>SCRATCH</Partition_Name>
                <img_id>10</img_id>
                <Offset>1048576</Offset>
                <size>65536</size>
                <HostSpecificInfo><PartType>1</PartType></HostSpecificInfo>
            </Partition>
            <Partition>
                <Partition_Name>APPS</Partition_Name>
                <img_id>3</img_id>
                <Offset>1114112</Offset>
                <size>131072</size>
                <Image_Path>apps.bin</Image_Path>
                <HostSpecificInfo><PartType>1</PartType></HostSpecificInfo>
            </Partition>
            <Partition>
                <Partition_Name>DSP</Partition_Name>
                <img_id>4</img_id>
                <Offset>1245184</Offset>
                <size>65536</size>
                <Image_Path>./dsp.mbn</Image_Path>
                <HostSpecificInfo><PartType>0</PartType></HostSpecificInfo>
            </Partition>
            <Partition>
                <Partition_Name>DSP_COPY</Partition_Name>
                <img_id>8</img_id>
                <Offset>1310720</Offset>
                <size>65536</size>
                <Image_Path></Image_Path>
            </Partition>
            <Partition>
                <Partition_Name>MARKER</Partition_Name>
                <img_id>5</img_id>
                <Offset>1376256</Offset>
                <size>4096</size>
                <Image_Path>marker.bin</Image_Path>
                <HostSpecificInfo><PartType>2</PartType></HostSpecificInfo>
            </Partition>
            <Partition>
                <Partition_Name>EMPTY</Partition_Name>
                <img_id>6</img_id>
                <Offset>1380352</Offset>
                <size>0</size>
                <Image_Path></Image_Path>
                <HostSpecificInfo><PartType>1</PartType></HostSpecificInfo>
            </Partition>
            <Partition>
                <Partition_Name>USER_DATA</Partition_Name>
                <img_id>7</img_id>
                <Offset>2097152</Offset>
                <size>262144</size>
            </Partition>
        </Partition_table>
    </Bank_1>
</flash_layout>
)";

std::string version_text(const std::string& build) {
    return "{\n"
           "    \"Metadata\": {\"kind\": \"generated\"},\n"
           "    \"apps_cochip\": \"TBX7700.APPS.1.2-" +
           build +
           "-MARLO-1\",\n"
           "    \"btfw_cochip\": \"TBX7700.BTFW.2.0-" +
           build +
           "\",\n"
           "    \"dsp_cochip\": \"TBX7700.DSP.1.7-" +
           build +
           "\"\n"
           "}\n";
}

// The same bytes for the same seed, everywhere.
std::string noise(uint32_t seed, size_t size) {
    std::mt19937 numbers(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(numbers() >> 24);
    return bytes;
}

std::string flash_image() {
    std::string bytes = noise(1, kFlashImageSize);
    std::copy(sim_boot_loader_start, sim_boot_loader_end, bytes.begin() + kBootLoaderOffset);
    return bytes;
}

void write_file(const fs::path& file, const std::string& bytes) {
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) throw std::runtime_error(file.string() + ": " + std::strerror(errno));
}

}  // namespace

void generate_images(const fs::path& directory) {
    write_file(directory / "partition_table.xml", kPartitionTable);
    write_file(directory / "flash.bin", flash_image());
    write_file(directory / "partition_1.bin", noise(2, 40007));
    write_file(directory / "apps.bin", noise(3, 100003));
    write_file(directory / "dsp.mbn", noise(4, 36864));
    write_file(directory / "marker.bin", noise(5, 1));
    write_file(directory / "tbx7700_ver_info.txt", version_text("00042"));
}

void generate_misc_data(const fs::path& directory) {
    constexpr size_t kPayload = 4096 - 16;  // what fits behind a packet's header
    write_file(directory / "mrbtfw20.mbn", noise(6, 17 * kPayload + 1));
    write_file(directory / "mrnv20.bin", noise(7, 1234));
}

void generate_version_file(const fs::path& file) {
    // An older build: who reads this file although the image directory has one sees a difference.
    write_file(file, version_text("00017"));
}

}  // namespace sim
