// SPDX-License-Identifier: Apache-2.0
#include "bench/firmware.h"

#include <android/log.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

#include "bench/channel_open.h"
#include "fwupdater/marlo_fw_updater.h"

namespace bench {
namespace {

void write_file(const std::filesystem::path& path, std::span<const uint8_t> bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error(path.string() + " cannot be written");
    }
}

std::string partition(uint32_t id, const std::string& rest) {
    return "<Partition><img_id>" + std::to_string(id) + "</img_id>" + rest + "</Partition>\n";
}

}  // namespace

void prepare_daemon() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    open_instead("/sys/power/wake_lock", "/dev/null");
    open_instead("/sys/power/wake_unlock", "/dev/null");
}

Firmware::Firmware(std::span<const uint8_t> served, int partitions) {
    std::string table = "<R><Bank_1><Partition_table>\n";
    for (int number = 1; number < partitions; ++number) {
        table += partition(static_cast<uint32_t>(number) + 100, "");
    }
    table += partition(kServedImage, "<Image_Path>served.bin</Image_Path>") +
             "</Partition_table></Bank_1></R>\n";
    const std::filesystem::path& path = directory_.path();
    write_file(path / "partition_table.xml",
               {reinterpret_cast<const uint8_t*>(table.data()), table.size()});
    write_file(path / "served.bin", served);
    write_file(path / "flash.bin", served.first(std::min<size_t>(served.size(), 4096)));
    write_file(path / "partition_1.bin", {});
    open_instead(fw_image_dir, path.string() + "/");
}

std::vector<uint8_t> made_up_image(size_t size) {
    std::vector<uint8_t> bytes(size);
    uint64_t state = 0x9E3779B97F4A7C15;
    for (size_t at = 0; at < size; at += sizeof(state)) {
        // xorshift64
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(&bytes[at], &state, std::min(sizeof(state), size - at));
    }
    return bytes;
}

}  // namespace bench
