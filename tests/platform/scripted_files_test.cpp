// SPDX-License-Identifier: Apache-2.0
// What the scripted platform has beyond the calls: scripted failures, and the transcript.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "platform/os.h"
#include "platform/scripted/scripted_platform.h"
#include "tests/platform/empty_directory.h"

using scripted::platform;
using testing::ElementsAre;

std::string empty_directory() {
    scripted::reset_platform();
    platform().directory("/data/files", {});
    return "/data/files";
}

namespace {

TEST(ScriptedFiles, EachCallCanFailOnceAndShowsInTheTranscript) {
    empty_directory();
    const int fd = os::open("/data/files/a", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    platform().script_write("/data/files/a", {.data = {}, .accepted = 2});
    platform().script_write("/data/files/a", scripted::failure(ENOSPC));
    EXPECT_EQ(os::pwrite(fd, "text", 4, 6), 2);
    EXPECT_EQ(os::pwrite(fd, "xt", 2, 8), -1);
    EXPECT_EQ(errno, ENOSPC);
    const auto twice = [](const std::string& line, const std::function<int()>& call) {
        platform().fail_call(line, EIO);
        EXPECT_EQ(call(), -1) << line;
        EXPECT_EQ(errno, EIO) << line;
        EXPECT_EQ(call(), 0) << line;
    };
    twice("fsync /data/files/a", [fd] { return os::fsync(fd); });
    twice("fdatasync /data/files/a", [fd] { return os::fdatasync(fd); });
    os::close(fd);
    twice("rename /data/files/a /data/files/b",
          [] { return os::rename_to_new("/data/files/a", "/data/files/b"); });
    EXPECT_THAT(platform().files_below("/data/files/"), ElementsAre("/data/files/b"));
    EXPECT_EQ(platform().contents("/data/files/b"),
              scripted::bytes_of(std::string("\0\0\0\0\0\0te", 8)));
    twice("unlink /data/files/b", [] { return os::unlink("/data/files/b"); });
    EXPECT_EQ(platform().contents("/data/files/b"), std::nullopt);
    EXPECT_THAT(platform().transcript({""}),
                ElementsAre("open /data/files/a = 3", "pwrite /data/files/a 2 at 6",
                            "pwrite /data/files/a = -1 28", "fsync /data/files/a = -1 5",
                            "fsync /data/files/a", "fdatasync /data/files/a = -1 5",
                            "fdatasync /data/files/a", "close /data/files/a",
                            "rename /data/files/a /data/files/b = -1 5",
                            "rename /data/files/a /data/files/b", "unlink /data/files/b = -1 5",
                            "unlink /data/files/b"));
}

}  // namespace
