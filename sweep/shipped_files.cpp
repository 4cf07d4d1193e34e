// SPDX-License-Identifier: Apache-2.0
#include "sweep/shipped_files.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "sim/firmware_generator.h"

namespace fs = std::filesystem;

namespace sweep {
namespace {

// Removed with all that is in it.
class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string name = (fs::temp_directory_path() / "marlo-sweep-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
        path_ = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    const fs::path& path() const { return path_; }

  private:
    fs::path path_;
};

Bytes bytes_in(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(stream), {});
}

void take_files(const fs::path& from, const std::string& to, std::map<std::string, Bytes>& files) {
    for (const auto& entry : fs::directory_iterator(from)) {
        files[to + entry.path().filename().string()] = bytes_in(entry.path());
    }
}

}  // namespace

DeviceSetup device_setup(const sim::Scenario& scenario, uint32_t fragment_size) {
    const TemporaryDirectory directory;
    const fs::path images = directory.path() / "image";
    const fs::path misc = directory.path() / "misc";
    const fs::path versions = directory.path() / "verinfo";
    for (const fs::path& path : {images, misc, versions}) fs::create_directory(path);
    sim::generate_images(images);
    sim::generate_misc_data(misc);
    sim::generate_version_file(versions / "ver_info.txt");
    DeviceSetup setup{&scenario, {}, {}, {}, fragment_size};
    setup.firmware =
        sim::FirmwareBundle::load(images, versions / "ver_info.txt", scenario.start.platform);
    if (!scenario.start.flash_image) fs::remove(images / "flash.bin");
    take_files(images, "/vendor/firmware_mnt/image/", setup.files);
    take_files(versions, "/vendor/firmware_mnt/verinfo/", setup.files);
    take_files(misc, "/vendor/bt_firmware/image/", setup.files);
    setup.misc_data = {{0, bytes_in(misc / "mrbtfw20.mbn")}, {1, bytes_in(misc / "mrnv20.bin")}};
    return setup;
}

}  // namespace sweep
