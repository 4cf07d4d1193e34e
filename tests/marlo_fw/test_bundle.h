// SPDX-License-Identifier: Apache-2.0
// A bundle that is as it should be, in memory and in a directory of its own.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tools/marlo_fw/bundle_files.h"

namespace marlo_fw::test {

constexpr const char* kTable = "partition_table.xml";
constexpr const char* kVersionText = "tbx7700_ver_info.txt";
constexpr size_t kBootLoaderAt = 12416;  // in flash.bin

using Files = std::map<std::string, std::string>;

// Generated firmware, its images cut to what is looked at.
const Files& intact_files();

class TestBundle {
  public:
    TestBundle();
    ~TestBundle();
    TestBundle(const TestBundle&) = delete;
    TestBundle& operator=(const TestBundle&) = delete;

    std::filesystem::path directory() const { return root_ / "image"; }
    std::filesystem::path root() const { return root_; }
    Bundle bundle() const;

    // The directory has these files and nothing else.
    void become(const Files& files);
    void write(const std::string& name, const std::string& bytes) const;
    void remove(const std::string& name) const;
    // The first `from` in a file, which must be there, becomes `to`.
    void edit(const std::string& name, const std::string& from, const std::string& to) const;
    // The bytes at `at` of the boot loader.
    void patch_boot_loader(size_t at, const std::string& bytes) const;

  private:
    std::filesystem::path root_;
    Files written_;  // by become
};

std::string word(uint32_t value);  // little-endian
std::string contents(const std::filesystem::path& file);

}  // namespace marlo_fw::test
