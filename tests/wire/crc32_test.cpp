// SPDX-License-Identifier: Apache-2.0
// Each way to compute the checksum, beside zlib's.
#include "wire/crc32.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <initializer_list>
#include <ostream>
#include <vector>

#include "wire/crc32_paths.h"

namespace wire {

void PrintTo(const Crc32Path& path, std::ostream* stream) {
    *stream << path.name;
}

}  // namespace wire

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
constexpr uint32_t kChecksumOfDigits = 0xCBF43926;
constexpr uint32_t kAnyChecksum = 0x12345678;

// Before main(), perhaps before the initialisers of wire/.
const uint32_t checksum_at_start = wire::crc32(kDigits);

uint32_t zlib_crc32(std::span<const uint8_t> bytes, uint32_t checksum_so_far) {
    // Without bytes zlib starts anew.
    return bytes.empty() ? checksum_so_far
                         : static_cast<uint32_t>(crc32(checksum_so_far, bytes.data(),
                                                       static_cast<uInt>(bytes.size())));
}

// Bit by bit, as the standard has it.
uint32_t plain_crc32(std::span<const uint8_t> bytes) {
    uint32_t remainder = ~0U;
    for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        const uint32_t next = static_cast<uint32_t>(bytes[bit / 8]) >> bit % 8;
        remainder = (remainder >> 1) ^ (((remainder ^ next) & 1) != 0 ? 0xEDB88320 : 0);
    }
    return ~remainder;
}

// `count` bytes after `offset` others, and none after them: who reads further is caught.
Bytes bytes_at(size_t offset, size_t count) {
    Bytes bytes(offset + count);
    uint32_t state = static_cast<uint32_t>(count);
    for (uint8_t& byte : bytes) {
        state = static_cast<uint32_t>(uint64_t{state} * 1664525 + 1013904223);
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

class EachCrc32Path : public testing::TestWithParam<wire::Crc32Path> {
  protected:
    void SetUp() override {
        if (!GetParam().is_supported()) {
            GTEST_SKIP() << "this processor lacks what " << GetParam().name << " takes";
        }
    }

    static void expect_equals_zlib(size_t offset, size_t count) {
        const Bytes bytes = bytes_at(offset, count);
        const std::span<const uint8_t> message = std::span(bytes).subspan(offset);
        for (const uint32_t so_far : {0U, kAnyChecksum, ~0U}) {
            ASSERT_EQ(GetParam().crc32(message, so_far), zlib_crc32(message, so_far))
                << count << " bytes after " << offset << ", continuing " << so_far;
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Wire, EachCrc32Path, testing::ValuesIn(wire::crc32_paths()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(EachCrc32Path, EqualsZlibForEveryShortLengthAndAlignment) {
    for (size_t offset = 0; offset < 16; ++offset) {
        for (size_t count = 0; count <= 300; ++count) {
            ASSERT_NO_FATAL_FAILURE(expect_equals_zlib(offset, count));
        }
    }
}

TEST_P(EachCrc32Path, EqualsZlibForLongMessages) {
    for (const size_t around :
         std::initializer_list<size_t>{512, 1024, 4096, 4124, 65536, 1 << 20}) {
        for (const size_t count : {around - 1, around, around + 1}) {
            for (const size_t offset : std::initializer_list<size_t>{0, 1, 8}) {
                ASSERT_NO_FATAL_FAILURE(expect_equals_zlib(offset, count));
            }
        }
    }
}

TEST_P(EachCrc32Path, ContinuesFromEveryPointOfAMessage) {
    const Bytes bytes = bytes_at(0, 150);
    const std::span<const uint8_t> message = bytes;
    for (size_t split = 0; split <= message.size(); ++split) {
        const uint32_t head = GetParam().crc32(message.first(split), 0);
        ASSERT_EQ(GetParam().crc32(message.subspan(split), head), plain_crc32(message)) << split;
    }
}

TEST(Crc32, IsTheStandardsAtAnyTime) {
    EXPECT_EQ(checksum_at_start, kChecksumOfDigits);
    EXPECT_EQ(wire::crc32(kDigits), kChecksumOfDigits);
    EXPECT_EQ(plain_crc32(kDigits), kChecksumOfDigits);
    EXPECT_EQ(wire::crc32({}), 0U);
    EXPECT_EQ(wire::crc32({}, kAnyChecksum), kAnyChecksum);
    const std::span<const uint8_t> digits = kDigits;
    EXPECT_EQ(wire::crc32(digits.subspan(4), wire::crc32(digits.first(4))), kChecksumOfDigits);
}

}  // namespace
