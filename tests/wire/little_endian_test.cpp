// SPDX-License-Identifier: Apache-2.0
#include "wire/little_endian.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

TEST(LittleEndian, WordsBeyondTheEndReadAsZeroAndAreNotWritten) {
    Bytes bytes = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(wire::word_at(bytes, 1), 0x05040302u);
    EXPECT_EQ(wire::word_at(bytes, 4), 0x00000605u);
    EXPECT_EQ(wire::word_at(bytes, 6), 0u);
    EXPECT_EQ(wire::word_at(bytes, SIZE_MAX), 0u);
    EXPECT_FALSE(wire::put_word_at(bytes, 3, 9));
    EXPECT_FALSE(wire::put_word_at(bytes, SIZE_MAX - 1, 9));
    EXPECT_TRUE(wire::put_word_at(bytes, 2, 0xA1B2C3D4));
    EXPECT_THAT(bytes, testing::ElementsAre(1, 2, 0xD4, 0xC3, 0xB2, 0xA1));
}

TEST(LittleEndian, ReaderStaysFailedOnceItOverran) {
    const Bytes bytes = {1, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 9};
    wire::Reader reader(bytes);
    EXPECT_EQ(reader.u16(), 1u);
    EXPECT_EQ(reader.u32(), 2u);
    EXPECT_EQ(reader.u64(), 3u);
    EXPECT_FALSE(reader.failed());
    EXPECT_EQ(reader.u16(), 0u);
    EXPECT_TRUE(reader.failed());
    EXPECT_EQ(reader.u16(), 0u);

    wire::Reader skipping(bytes);
    skipping.skip(SIZE_MAX);
    EXPECT_TRUE(skipping.failed());
}

}  // namespace
