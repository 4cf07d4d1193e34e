// SPDX-License-Identifier: Apache-2.0
#include "sim/flash.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(Flash, TakesOnlyErasedBytesAndEachOnce) {
    Flash flash;
    EXPECT_FALSE(flash.write(0, Bytes{1}));
    flash.erase(100, 50);
    EXPECT_FALSE(flash.write(99, Bytes{1, 2}));
    EXPECT_FALSE(flash.write(149, Bytes{1, 2}));
    EXPECT_TRUE(flash.write(100, Bytes(30, 0xFF)));
    EXPECT_FALSE(flash.write(129, Bytes{1}));
    EXPECT_TRUE(flash.write(130, Bytes(20, 2)));
    flash.erase(110, 10);
    EXPECT_TRUE(flash.write(110, Bytes(10, 3)));
    EXPECT_FALSE(flash.erased(100, 1));
}

TEST(Flash, JoinsErasedRanges) {
    Flash flash;
    flash.erase(0, 10);
    flash.erase(20, 10);
    EXPECT_FALSE(flash.erased(0, 30));
    flash.erase(5, 15);
    EXPECT_TRUE(flash.erased(0, 30));
    EXPECT_FALSE(flash.erased(0, 31));
}

TEST(Flash, ComparesAcrossPiecesAndNamesTheFirstDifference) {
    Flash flash;
    flash.erase(0, 100);
    ASSERT_TRUE(flash.write(10, Bytes{1, 2}));
    ASSERT_TRUE(flash.write(14, Bytes{5, 6}));
    ASSERT_TRUE(flash.write(12, Bytes{3, 4}));
    std::string why;
    EXPECT_TRUE(flash.matches(10, Bytes{1, 2, 3, 4, 5, 6}, &why));
    EXPECT_FALSE(flash.matches(10, Bytes{1, 2, 3, 4, 5, 9}, &why));
    EXPECT_EQ(why, "byte 5 is 6, not 9");
    EXPECT_FALSE(flash.matches(10, Bytes{1, 2, 3, 4, 5, 6, 0}, &why));
    EXPECT_EQ(why, "byte 6 was never written");
    // An erase in the middle of a piece leaves both its ends.
    flash.erase(11, 1);
    EXPECT_TRUE(flash.matches(10, Bytes{1}, &why));
    EXPECT_TRUE(flash.matches(12, Bytes{3, 4, 5, 6}, &why));
}

}  // namespace
}  // namespace sim
