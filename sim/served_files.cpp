// SPDX-License-Identifier: Apache-2.0
#include "sim/served_files.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <utility>

#include "sim/firmware_generator.h"
#include "sim/shell_text.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

void link_given_firmware(const fs::path& given, const Root& root) {
    fs::create_directory_symlink(given, root.firmware_directory() / "image");
    // On a device it lies beside the image directory.
    const fs::path beside = given.parent_path() / "verinfo";
    if (!fs::is_directory(beside)) return;
    fs::create_directory_symlink(beside, root.firmware_directory() / "verinfo");
}

void generate_firmware(const Root& root) {
    const fs::path images = root.firmware_directory() / "image";
    const fs::path versions = root.firmware_directory() / "verinfo";
    fs::create_directory(images);
    fs::create_directory(versions);
    generate_images(images);
    generate_version_file(versions / "ver_info.txt");
}

// The types of misc data and their files.
constexpr std::pair<uint32_t, const char*> kMiscData[] = {{0, "mrbtfw20.mbn"}, {1, "mrnv20.bin"}};
constexpr uint64_t kLargestMiscData = 256 << 20;

// None if there is no such file: it is then not sent either.
std::optional<Bytes> read_misc_data(const fs::path& file) {
    if (!fs::is_regular_file(file)) return {};
    if (fs::file_size(file) > kLargestMiscData) {
        throw FirmwareError(file.string() + ": " + std::to_string(fs::file_size(file)) +
                            " bytes, more than the limit of " + std::to_string(kLargestMiscData) +
                            "; --bt-firmware names others");
    }
    std::ifstream stream(file, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(stream), {});
}

// By the name that an error message should tell.
FirmwareBundle load_given_firmware(const fs::path& given, const fs::path& versions,
                                   const PlatformFacts& platform) {
    try {
        return FirmwareBundle::load(given, versions, platform);
    } catch (const FirmwareError& error) {
        throw FirmwareError("cannot judge an update with --firmware " + given.string() + ": " +
                            error.what() + "; `marlo-fw inspect " + shell_word(given) +
                            "` shows what the daemon makes of it");
    }
}

}  // namespace

FirmwareBundle provide_firmware(const Root& root, const Options& options, const Start& start) {
    const fs::path versions = root.firmware_directory() / "verinfo/ver_info.txt";
    if (!options.firmware) {
        generate_firmware(root);
        const fs::path images = root.firmware_directory() / "image";
        FirmwareBundle firmware = FirmwareBundle::load(images, versions, start.platform);
        if (!start.flash_image) fs::remove(images / "flash.bin");
        return firmware;
    }
    if (!start.flash_image) {
        throw std::runtime_error(
            "--firmware: the scenario takes flash.bin away, which it does "
            "with generated images only; leave the option out");
    }
    const fs::path given = fs::canonical(*options.firmware);
    link_given_firmware(given, root);
    FirmwareBundle firmware = load_given_firmware(given, versions, start.platform);
    for (const std::string& note : firmware.notes) std::cerr << "marlo-sim: " << note << "\n";
    return firmware;
}

MiscFiles provide_misc_data(const Root& root, const Options& options) {
    const fs::path directory = root.bt_firmware_directory() / "image";
    if (options.bt_firmware) {
        fs::create_directory_symlink(fs::canonical(*options.bt_firmware), directory);
    } else {
        fs::create_directory(directory);
        generate_misc_data(directory);
    }
    MiscFiles files;
    for (const auto& [type, name] : kMiscData) {
        if (auto bytes = read_misc_data(directory / name)) files[type] = std::move(*bytes);
    }
    if (files.empty()) {
        throw FirmwareError("--bt-firmware " + options.bt_firmware->string() +
                            ": neither mrbtfw20.mbn nor mrnv20.bin is there; put in what is to "
                            "be pushed");
    }
    return files;
}

}  // namespace sim
