// SPDX-License-Identifier: Apache-2.0
// The backing files among real files and links, below a root prefix.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "platform/os.h"
#include "rma/backing_file.h"

namespace {

namespace fs = std::filesystem;

const std::string kPartition = std::string(backing_file_directory) + "717";

class BackingFiles : public testing::Test {
  protected:
    void SetUp() override {
        setenv("MARLO_ROOT", root_.c_str(), 1);
        fs::create_directories(directory_);
        std::ofstream(outside_) << "outside";
        std::ofstream(directory_ / "12") << "another";
    }
    void TearDown() override { fs::remove_all(root_); }

    static std::string contents(const fs::path& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static bool opens(int access) { return BackingFile(kPartition, access).is_open(); }

    // The prefix is read once: it is the same for all tests.
    static inline const fs::path root_ =
        fs::temp_directory_path() / ("marlo-links-" + std::to_string(getpid()));
    const fs::path directory_ = root_ / "data/vendor/aon";
    const fs::path outside_ = root_ / "outside";
};

TEST_F(BackingFiles, FollowNoLink) {
    for (const fs::path& target : {outside_, root_ / "none", directory_ / "12"}) {
        for (const char* name : {"717", "unfinished"}) {
            fs::create_symlink(target, directory_ / name);
            EXPECT_EQ(create_backing_file(kPartition, 16), Creation::not_opened) << name << target;
            EXPECT_EQ(errno, ELOOP) << name << target;
            EXPECT_FALSE(opens(O_RDONLY)) << name << target;
            EXPECT_FALSE(opens(O_RDWR)) << name << target;
            EXPECT_TRUE(fs::is_symlink(directory_ / name));
            fs::remove(directory_ / name);
        }
    }
    EXPECT_EQ(contents(outside_), "outside");
    EXPECT_EQ(contents(directory_ / "12"), "another");
    EXPECT_FALSE(fs::exists(root_ / "none"));
}

TEST_F(BackingFiles, MayLieBehindALinkToTheirDirectory) {
    fs::rename(directory_, root_ / "elsewhere");
    fs::create_directory_symlink(root_ / "elsewhere", directory_);
    EXPECT_EQ(create_backing_file(kPartition, 16), Creation::created);
    EXPECT_EQ(fs::file_size(root_ / "elsewhere/717"), 16u);
    EXPECT_TRUE(opens(O_RDWR));
}

TEST_F(BackingFiles, AreMadeTheOwnersAloneWhateverTheMask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        umask(mask);
        os::initialize();
        EXPECT_EQ(create_backing_file(kPartition, 16), Creation::created);
        EXPECT_EQ(fs::status(directory_ / "717").permissions(), fs::perms{0600});
        fs::remove(directory_ / "717");
    }
}

TEST_F(BackingFiles, AreReachedAsFarAsAnOffsetTells) {
    std::ofstream(directory_ / "717").flush();
    if (truncate((directory_ / "717").c_str(), off_t{1} << 32) != 0) {
        GTEST_SKIP() << "no file of 4 GiB can be made: " << strerror(errno);
    }
    const std::map<uint32_t, std::string> blocks = {
        {0, "first"}, {0x7FFFFFFE, "middle"}, {0xC0000000, "third"}, {0xFFFFFFFC, "last"}};
    for (const auto& [offset, block] : blocks) {
        const auto size = static_cast<uint32_t>(block.size());
        EXPECT_TRUE(BackingFile(kPartition, O_RDWR).write(offset, block.data(), size)) << offset;
    }
    for (const auto& [offset, block] : blocks) {
        std::vector<uint8_t> found(block.size());
        EXPECT_TRUE(BackingFile(kPartition, O_RDONLY).read(offset, found)) << offset;
        EXPECT_EQ(std::string(found.begin(), found.end()), block) << offset;
    }
    EXPECT_TRUE(BackingFile(kPartition, O_RDONLY).contains(0xFFFFFFFC, 4));
    EXPECT_FALSE(BackingFile(kPartition, O_RDONLY).contains(0xFFFFFFFC, 5));
}

}  // namespace
