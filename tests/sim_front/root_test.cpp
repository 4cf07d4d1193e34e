// SPDX-License-Identifier: Apache-2.0
#include "sim/root.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <optional>

#include "tests/sim_front/temporary_directory.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

class RootTest : public testing::Test {
  protected:
    RootTest() { setenv("TMPDIR", directory_.path().c_str(), 1); }
    ~RootTest() override { unsetenv("TMPDIR"); }

    // A root whose process ended without its destructor, as a killed one does.
    static void make_left_over(const std::optional<fs::path>& requested, bool keep) {
        const pid_t child = fork();
        if (child == 0) {
            const Root root(requested, keep);
            std::ofstream(root.firmware_directory() / "file") << "text";
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }
    size_t entries() const {
        const auto iterator = fs::directory_iterator(directory_.path());
        return static_cast<size_t>(std::distance(begin(iterator), end(iterator)));
    }

    TemporaryDirectory directory_;
};

TEST_F(RootTest, IsGoneAfterwardsUnlessKept) {
    fs::path path;
    {
        const Root root(std::nullopt, false);
        path = root.path();
        EXPECT_EQ(path.parent_path(), directory_.path());
        EXPECT_TRUE(fs::is_directory(path / "dev"));
        EXPECT_TRUE(fs::is_directory(root.firmware_directory()));
    }
    EXPECT_FALSE(fs::exists(path));
    { path = Root(std::nullopt, true).path(); }
    EXPECT_TRUE(fs::exists(path / "dev"));
}

TEST_F(RootTest, SweepRemovesWhatAKilledProcessLeft) {
    make_left_over(std::nullopt, false);
    ASSERT_EQ(entries(), 1u);
    Root::sweep();
    EXPECT_EQ(entries(), 0u);
}

TEST_F(RootTest, SweepSparesWhatIsInUseOrKeptOrForeign) {
    const Root in_use(std::nullopt, false);
    make_left_over(std::nullopt, true);
    fs::create_directory(directory_.path() / "marlo-sim-foreign");
    std::ofstream(directory_.path() / "marlo-sim-file") << "text";
    Root::sweep();
    EXPECT_EQ(entries(), 4u);
    EXPECT_TRUE(fs::exists(in_use.path() / "dev"));
}

TEST_F(RootTest, ForeignDirectoryIsRefusedAndUntouched) {
    const fs::path foreign = directory_.path() / "foreign";
    fs::create_directories(foreign / "dev");
    std::ofstream(foreign / "dev/file") << "text";
    EXPECT_THROW(Root(foreign, false), RootError);
    EXPECT_TRUE(fs::exists(foreign / "dev/file"));
    EXPECT_THROW(Root(foreign / "dev/file", false), RootError);
}

TEST_F(RootTest, EmptyDirectoryIsUsedAndLeftEmpty) {
    const fs::path given = directory_.path() / "given";
    fs::create_directory(given);
    { const Root root(given, false); }
    EXPECT_TRUE(fs::exists(given));
    EXPECT_TRUE(fs::is_empty(given));
}

TEST_F(RootTest, FilesOfOthersInItStay) {
    const fs::path given = directory_.path() / "given";
    {
        const Root root(given, false);
        std::ofstream(given / "notes") << "text";
    }
    EXPECT_TRUE(fs::exists(given / "notes"));
    EXPECT_EQ(std::distance(fs::directory_iterator(given), {}), 1);
}

TEST_F(RootTest, DirectoryOfAKilledProcessIsUsedAfresh) {
    const fs::path given = directory_.path() / "given";
    make_left_over(given, false);
    ASSERT_TRUE(fs::exists(given / "vendor/firmware_mnt/file"));
    const Root root(given, false);
    EXPECT_TRUE(fs::is_empty(root.firmware_directory()));
}

TEST_F(RootTest, DirectoryInUseIsRefused) {
    const Root first(std::nullopt, false);
    EXPECT_THROW(Root(first.path(), false), RootError);
    EXPECT_TRUE(fs::exists(first.firmware_directory()));
}

}  // namespace
}  // namespace sim
