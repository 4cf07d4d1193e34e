// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/dfu_messages.h"

#include <gtest/gtest.h>

#include "tests/bytes.h"

namespace {

Bytes build(uint32_t id, std::span<const uint8_t> payload) {
    Bytes message;
    dfu::build_message(message, id,
                       {.length = static_cast<uint32_t>(payload.size()),
                        .fields = payload,
                        .image_bytes = {},
                        .zero_fill = 0});
    return message;
}

}  // namespace

TEST(DfuMessages, GoldenVectors) {
    EXPECT_EQ(
        build(dfu::MG_UPDT_REQ, dfu::update_request()),
        from_hex(
            "01000000 0d0c0b0a 24000000 5a9ec739 01000000 00000000 00000000 494d4720 55504454"));
    EXPECT_EQ(build(dfu::DFU_SPCL_OPERATION_REQ,
                    dfu::three_words(dfu::SPCL_OP_RAW_FLASH_ERASE, 0x1000, 0x8000)),
              from_hex("0d000000 0d0c0b0a 1c000000 d0216044 00000000 00100000 00800000"));
    EXPECT_EQ(build(dfu::SESSION_END_RESP, dfu::three_words(0, 0, 0)),
              from_hex("0c000000 0d0c0b0a 1c000000 835b3ec3 00000000 00000000 00000000"));

    const Bytes image = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4};
    const auto fields = dfu::three_words(2, 3, 4);
    Bytes message(100, 0xEE);  // what a buffer held before does not show through
    const uint32_t crc = dfu::build_message(message, dfu::IMG_OFFSET_RESP,
                                            dfu::fragment_payload(fields, image, 3, 4));
    EXPECT_EQ(crc, 0xD69BE7FAU);
    EXPECT_EQ(message,
              from_hex("06000000 0d0c0b0a 20000000 fae79bd6 02000000 03000000 04000000 d3d40000"));
}

TEST(DfuMessages, FragmentIsWholeOrLeftOut) {
    const Bytes image(100);
    const auto fields = dfu::three_words(0, 0, 0);
    struct Case {
        uint32_t offset, length;
        size_t image_bytes, zeros;
    };
    for (const Case& c : {Case{0, 100, 100, 0},
                          {99, 1, 1, 0},
                          {99, 3, 1, 2},
                          {0, 4096, 100, 3996},
                          {100, 1, 0, 0},
                          {0xFFFFFFFF, 1, 0, 0},
                          {5, 0, 0, 0},
                          {99, 0xFFFFFFFF, 1, 0xFFFFFFFE}}) {
        const dfu::Payload payload = dfu::fragment_payload(fields, image, c.offset, c.length);
        EXPECT_EQ(payload.image_bytes.size(), c.image_bytes) << c.offset << " " << c.length;
        EXPECT_EQ(payload.zero_fill, c.zeros) << c.offset << " " << c.length;
        EXPECT_EQ(payload.length, static_cast<uint32_t>(12 + c.image_bytes + c.zeros))
            << c.offset << " " << c.length;
    }
}

TEST(DfuMessages, PercentageWrapsInThirtyTwoBits) {
    EXPECT_EQ(dfu::progress_percentage(0, 1000), 0U);
    EXPECT_EQ(dfu::progress_percentage(999, 1000), 99U);
    EXPECT_EQ(dfu::progress_percentage(42'949'672, 50'000'000), 85U);
    EXPECT_EQ(dfu::progress_percentage(42'949'673, 50'000'000), 0U);
    EXPECT_EQ(dfu::progress_percentage(5, 0), 0U);
}

TEST(DfuMessages, ShortMessageReadsAsZeroBeyondItsEnd) {
    const Bytes whole = {3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 8, 0, 0};
    EXPECT_EQ(dfu::ReceivedMessage(whole).image_id(), 0x0807U);
    EXPECT_EQ(dfu::ReceivedMessage({whole.data(), 17}).image_id(), 7U);
    EXPECT_EQ(dfu::ReceivedMessage({whole.data(), 16}).image_id(), 0U);
    EXPECT_EQ(dfu::ReceivedMessage({whole.data(), 1}).command_id(), 3U);
}
