// SPDX-License-Identifier: Apache-2.0
#include "sim/packet_cutter.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(PacketCutter, RestOfAPacketStaysForTheNextRead) {
    PacketCutter cutter;
    EXPECT_TRUE(cutter.empty());
    cutter.refill({1, 2, 3, 4, 5});
    EXPECT_EQ(cutter.take(2), (Bytes{1, 2}));
    EXPECT_FALSE(cutter.empty());
    EXPECT_EQ(cutter.take(2), (Bytes{3, 4}));
    EXPECT_EQ(cutter.take(100), (Bytes{5}));
    EXPECT_TRUE(cutter.empty());
}

TEST(PacketCutter, ReadOfExactlyThePacketLeavesNothing) {
    PacketCutter cutter;
    cutter.refill({1, 2, 3});
    EXPECT_EQ(cutter.take(3), (Bytes{1, 2, 3}));
    EXPECT_TRUE(cutter.empty());
    cutter.refill({4});
    EXPECT_EQ(cutter.take(3), (Bytes{4}));
}

TEST(PacketCutter, NothingOfAPacketSurvivesTheEndOfTheChannel) {
    PacketCutter cutter;
    cutter.refill({1, 2, 3});
    cutter.take(1);
    cutter.clear();
    EXPECT_TRUE(cutter.empty());
    EXPECT_EQ(cutter.take(3), Bytes{});
}

}  // namespace
}  // namespace sim
