// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <vector>

#include "wire/crc32.h"
#include "wire/little_endian.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(Crc32, EqualsZlibForEveryLengthAndAlignmentAndWhenContinued) {
    Bytes bytes(400);
    for (size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<uint8_t>(index * 131 + (index >> 3));
    }
    for (size_t start = 0; start < 16; ++start) {
        for (size_t length = 0; length <= 300; ++length) {
            const std::span<const uint8_t> part = std::span(bytes).subspan(start, length);
            const auto expected =
                static_cast<uint32_t>(crc32(0, part.data(), static_cast<uInt>(length)));
            ASSERT_EQ(wire::crc32(part), expected) << start << " " << length;
            const std::span<const uint8_t> head = part.first(length / 3);
            ASSERT_EQ(wire::crc32(part.subspan(length / 3), wire::crc32(head)), expected);
        }
    }
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(wire::crc32(digits), 0xCBF43926);
}

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
