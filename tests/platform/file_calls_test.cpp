// SPDX-License-Identifier: Apache-2.0
// What both platforms must agree on: this file is part of a test program of each.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "platform/os.h"
#include "tests/platform/empty_directory.h"

namespace {

class FileCalls : public testing::Test {
  protected:
    std::string path(const char* name) const { return directory_ + "/" + name; }

    static int open(const std::string& path, int flags, mode_t mode = 0600) {
        return os::open(path.c_str(), flags | O_CLOEXEC, mode);
    }
    // A new file with these contents.
    static void make(const std::string& path, const std::string& contents) {
        const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC);
        EXPECT_EQ(os::write(fd, contents.data(), contents.size()), ssize_t(contents.size()));
        EXPECT_EQ(os::close(fd), 0);
    }
    // Its contents, or "-" and the errno of opening it.
    static std::string contents(const std::string& path) {
        const int fd = open(path, O_RDONLY);
        if (fd < 0) {
            return "-" + std::to_string(errno);
        }
        std::string text(100, ' ');
        text.resize(static_cast<size_t>(os::read(fd, text.data(), text.size())));
        os::close(fd);
        return text;
    }

    const std::string directory_ = empty_directory();
    const std::string none_ = "-" + std::to_string(ENOENT);
};

TEST_F(FileCalls, FilesAreMadeOnlyWhereTheyMayBe) {
    EXPECT_EQ(contents(path("a")), none_);
    make(path("a"), "first");
    EXPECT_EQ(contents(path("a")), "first");
    struct stat status = {};
    const int fd = open(path("a"), O_RDWR | O_CREAT, 0644);
    ASSERT_EQ(os::fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0600});  // it was there before
    EXPECT_EQ(status.st_size, 5);
    os::close(fd);

    const auto error = [](const std::string& path, int flags) {
        return open(path, flags) < 0 ? errno : 0;
    };
    EXPECT_EQ(error(path("a"), O_WRONLY | O_CREAT | O_EXCL), EEXIST);
    EXPECT_EQ(error(path("a"), O_RDONLY | O_DIRECTORY), ENOTDIR);
    EXPECT_EQ(error(path("none/b"), O_WRONLY | O_CREAT), ENOENT);
    EXPECT_EQ(error(directory_, O_WRONLY), EISDIR);
    EXPECT_EQ(os::unlink(path("a").c_str()), 0);
    EXPECT_EQ(contents(path("a")), none_);
    EXPECT_EQ(os::unlink(path("a").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileCalls, WritesGoToTheirPlace) {
    make(path("a"), "0123456789");
    const int fd = open(path("a"), O_RDWR);
    EXPECT_EQ(os::pwrite(fd, "xy", 2, 4), 2);
    EXPECT_EQ(os::write(fd, "ab", 2), 2);  // the position is where it was
    char text[4] = {};
    EXPECT_EQ(os::pread(fd, text, 3, 8), 2);
    EXPECT_EQ(os::pread(fd, text, 3, 10), 0);
    EXPECT_EQ(os::read(fd, text, 3), 3);
    EXPECT_STREQ(text, "23x");
    EXPECT_EQ(os::fsync(fd), 0);
    EXPECT_EQ(os::fdatasync(fd), 0);
    EXPECT_EQ(os::close(fd), 0);
    EXPECT_EQ(contents(path("a")), "ab23xy6789");
    const int grown = open(path("a"), O_WRONLY);
    EXPECT_EQ(os::pwrite(grown, "!", 1, 12), 1);
    os::close(grown);
    EXPECT_EQ(contents(path("a")), std::string("ab23xy6789\0\0!", 13));
    make(path("a"), "short");
    EXPECT_EQ(contents(path("a")), "short");
}

TEST_F(FileCalls, ANameMayMoveWhileTheFileIsOpen) {
    make(path("new"), "new");
    make(path("old"), "old");
    const int old = open(path("old"), O_RDONLY);
    const int fd = open(path("new"), O_WRONLY);
    EXPECT_EQ(os::rename_to_new(path("new").c_str(), path("old").c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(contents(path("old")), "old");
    EXPECT_EQ(os::unlink(path("old").c_str()), 0);
    EXPECT_EQ(os::rename_to_new(path("new").c_str(), path("old").c_str()), 0);
    EXPECT_EQ(os::pwrite(fd, "N", 1, 0), 1);
    os::close(fd);
    EXPECT_EQ(contents(path("new")), none_);
    EXPECT_EQ(contents(path("old")), "New");
    char text[4] = {};
    EXPECT_EQ(os::read(old, text, 3), 3);
    EXPECT_STREQ(text, "old");
    os::close(old);
    EXPECT_EQ(os::rename_to_new(path("new").c_str(), path("old").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(os::rename_to_new(path("old").c_str(), path("none/old").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(contents(path("old")), "New");
}

TEST_F(FileCalls, ADirectoryCanBeSynced) {
    const int fd = open(directory_, O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(os::fsync(fd), 0);
    os::close(fd);
    EXPECT_EQ(os::fsync(fd), -1);
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
