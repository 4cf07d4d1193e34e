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

}  // namespace
