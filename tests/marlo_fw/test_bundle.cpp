// SPDX-License-Identifier: Apache-2.0
#include "tests/marlo_fw/test_bundle.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sim/firmware_generator.h"

namespace fs = std::filesystem;

namespace marlo_fw::test {
namespace {

// In memory where that can be: thousands of bundles are written.
fs::path new_directory() {
    const fs::path memory = "/dev/shm";
    for (const fs::path& top : {memory, fs::temp_directory_path()}) {
        std::string name = (top / "marlo_fw_test_XXXXXX").string();
        if (mkdtemp(name.data()) != nullptr) return name;
    }
    throw std::runtime_error("no directory can be made in /dev/shm or the one for temporary files");
}

Files generated() {
    const fs::path directory = new_directory();
    sim::generate_images(directory);
    Files files;
    for (const auto& entry : fs::directory_iterator(directory)) {
        files[entry.path().filename()] = contents(entry.path());
    }
    fs::remove_all(directory);
    // The boot loader ends before this.
    files.at("flash.bin").resize(kBootLoaderAt + 0x6000);
    for (const char* name : {"apps.bin", "dsp.mbn", "partition_1.bin"}) files.at(name).resize(1000);
    return files;
}

}  // namespace

const Files& intact_files() {
    static const Files files = generated();
    return files;
}

TestBundle::TestBundle() : root_(new_directory()) {
    fs::create_directories(directory());
    become(intact_files());
}

TestBundle::~TestBundle() {
    fs::remove_all(root_);
}

Bundle TestBundle::bundle() const {
    return {directory(), root_ / "verinfo" / "ver_info.txt", {}};
}

void TestBundle::become(const Files& files) {
    for (const auto& entry : fs::directory_iterator(directory())) {
        const std::string name = entry.path().filename();
        if (!files.contains(name) || entry.is_symlink() || !entry.is_regular_file()) {
            fs::remove_all(entry.path());
            written_.erase(name);
        }
    }
    for (const auto& [name, bytes] : files) {
        const auto before = written_.find(name);
        if (before == written_.end() || before->second != bytes) write(name, bytes);
    }
    written_ = files;
}

void TestBundle::write(const std::string& name, const std::string& bytes) const {
    std::ofstream stream(directory() / name, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) throw std::runtime_error(name + " cannot be written");
}

void TestBundle::remove(const std::string& name) const {
    fs::remove(directory() / name);
}

void TestBundle::edit(const std::string& name, const std::string& from,
                      const std::string& to) const {
    std::string text = contents(directory() / name);
    const size_t at = text.find(from);
    if (at == text.npos) throw std::runtime_error(name + " has no " + from);
    write(name, text.replace(at, from.size(), to));
}

void TestBundle::patch_boot_loader(size_t at, const std::string& bytes) const {
    std::string flash = contents(directory() / "flash.bin");
    write("flash.bin", flash.replace(kBootLoaderAt + at, bytes.size(), bytes));
}

std::string word(uint32_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift);
    return bytes;
}

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

}  // namespace marlo_fw::test
