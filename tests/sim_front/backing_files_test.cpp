// SPDX-License-Identifier: Apache-2.0
#include "sim/backing_files.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/sim_front/temporary_directory.h"

namespace sim {
namespace {

TEST(BackingFiles, AreComparedByteForByteAndName) {
    const TemporaryDirectory directory;
    const auto write = [&](const char* name, const char* text) {
        std::ofstream(directory.path() / name) << text;
    };
    EXPECT_EQ(difference(directory.path(), {}), "");
    const BackingFiles expected = {{"17", {'a', 'b'}}, {"18", {}}};
    EXPECT_EQ(difference(directory.path(), expected), "backing file 17 is not there");
    std::filesystem::create_directory(directory.path() / "17");
    EXPECT_EQ(difference(directory.path(), expected), "backing file 17 is not there");
    std::filesystem::remove(directory.path() / "17");
    write("17", "ab");
    write("18", "");
    EXPECT_EQ(difference(directory.path(), expected), "");
    write("17", "aB");
    EXPECT_EQ(difference(directory.path(), expected), "backing file 17: byte 1 is 66, not 98");
    write("17", "abc");
    EXPECT_EQ(difference(directory.path(), expected), "backing file 17: has 3 bytes, not 2");
    write("17", "ab");
    write("17.tmp", "");
    EXPECT_EQ(difference(directory.path(), expected),
              "among the backing files is one too many: 17.tmp");
}

}  // namespace
}  // namespace sim
