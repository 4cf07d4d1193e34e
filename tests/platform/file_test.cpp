// SPDX-License-Identifier: Apache-2.0
#include "platform/file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "platform/os.h"
#include "platform/scripted/scripted_platform.h"

using scripted::platform;

namespace {

TEST(File, InterruptedAndShortReadsAreContinued) {
    scripted::reset_platform();
    platform().device("/sys/name");
    platform().script_read("/sys/name", scripted::failure(EINTR));
    platform().script_read("/sys/name", {scripted::bytes_of("soc:")});
    platform().script_read("/sys/name", {scripted::bytes_of("zeno")});
    platform().script_read("/sys/name", {});
    char text[20] = {};
    EXPECT_EQ(os::read_file_up_to("/sys/name", text, sizeof(text)), 8);
    EXPECT_STREQ(text, "soc:zeno");
    EXPECT_EQ(platform().open_descriptors(), 0);
}

TEST(File, OnlyAFailedOpenIsAFailure) {
    scripted::reset_platform();
    char text[20];
    EXPECT_EQ(os::read_file_up_to("/sys/name", text, sizeof(text)), -1);
    EXPECT_EQ(errno, ENOENT);
    platform().device("/sys/name");
    platform().script_read("/sys/name", scripted::failure(EIO));
    EXPECT_EQ(os::read_file_up_to("/sys/name", text, sizeof(text)), 0);
    EXPECT_EQ(platform().open_descriptors(), 0);
}

TEST(File, InterruptedAndShortWritesAreContinued) {
    scripted::reset_platform();
    platform().file("/data/file", "..........");
    const int fd = os::open("/data/file", O_RDWR | O_CLOEXEC);
    platform().script_write("/data/file", scripted::failure(EINTR));
    platform().script_write("/data/file", {.data = {}, .accepted = 1});
    EXPECT_EQ(os::pwrite_all(fd, "zeno", 4, 3), 0);
    EXPECT_EQ(platform().contents("/data/file"), scripted::bytes_of("...zeno..."));
    char text[9] = {};
    platform().script_read("/data/file", scripted::failure(EINTR));
    EXPECT_EQ(os::pread_up_to(fd, text, 8, 4), 6);
    EXPECT_STREQ(text, "eno...");
    platform().fail_call("fsync /data/file", EINTR);
    EXPECT_EQ(os::uninterrupted([fd] { return os::fsync(fd); }), 0);
    EXPECT_EQ(platform().count("fsync"), 2u);
}

TEST(File, AWriteThatEndsEarlyIsAFailure) {
    for (const auto& [step, error] : {std::pair{scripted::failure(ENOSPC), ENOSPC},
                                      std::pair{scripted::Step{.data = {}, .accepted = 0}, EIO}}) {
        scripted::reset_platform();
        platform().file("/data/file", "..........");
        const int fd = os::open("/data/file", O_RDWR | O_CLOEXEC);
        platform().script_write("/data/file", {.data = {}, .accepted = 1});
        platform().script_write("/data/file", step);
        EXPECT_EQ(os::pwrite_all(fd, "zeno", 4, 3), -1);
        EXPECT_EQ(errno, error);
    }
}

}  // namespace
