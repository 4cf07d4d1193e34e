// SPDX-License-Identifier: Apache-2.0
#include "fwupdater/dfu_messages.h"

#include <gtest/gtest.h>

using Bytes = std::vector<uint8_t>;

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
    EXPECT_EQ(build(dfu::MG_UPDT_REQ, dfu::update_request()),
              (Bytes{0x01, 0x00, 0x00, 0x00, 0x0D, 0x0C, 0x0B, 0x0A, 0x24, 0x00, 0x00, 0x00,
                     0x5A, 0x9E, 0xC7, 0x39, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                     0x00, 0x00, 0x00, 0x00, 0x49, 0x4D, 0x47, 0x20, 0x55, 0x50, 0x44, 0x54}));
    EXPECT_EQ(build(dfu::DFU_SPCL_OPERATION_REQ,
                    dfu::three_words(dfu::SPCL_OP_RAW_FLASH_ERASE, 0x1000, 0x8000)),
              (Bytes{0x0D, 0x00, 0x00, 0x00, 0x0D, 0x0C, 0x0B, 0x0A, 0x1C, 0x00,
                     0x00, 0x00, 0xD0, 0x21, 0x60, 0x44, 0x00, 0x00, 0x00, 0x00,
                     0x00, 0x10, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00}));
    EXPECT_EQ(build(dfu::SESSION_END_RESP, dfu::three_words(0, 0, 0)),
              (Bytes{0x0C, 0x00, 0x00, 0x00, 0x0D, 0x0C, 0x0B, 0x0A, 0x1C, 0x00,
                     0x00, 0x00, 0x83, 0x5B, 0x3E, 0xC3, 0x00, 0x00, 0x00, 0x00,
                     0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));

    const Bytes image = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4};
    const auto fields = dfu::three_words(2, 3, 4);
    Bytes message(100, 0xEE);  // what a buffer held before does not show through
    const uint32_t crc = dfu::build_message(message, dfu::IMG_OFFSET_RESP,
                                            dfu::fragment_payload(fields, image, 3, 4));
    EXPECT_EQ(crc, 0xD69BE7FAU);
    EXPECT_EQ(message, (Bytes{0x06, 0x00, 0x00, 0x00, 0x0D, 0x0C, 0x0B, 0x0A, 0x20, 0x00, 0x00,
                              0x00, 0xFA, 0xE7, 0x9B, 0xD6, 0x02, 0x00, 0x00, 0x00, 0x03, 0x00,
                              0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0xD3, 0xD4, 0x00, 0x00}));
}

TEST(DfuMessages, FragmentIsWholeOrLeftOut) {
    const Bytes image(100);
    const auto fields = dfu::three_words(0, 0, 0);
    struct Case {
        uint32_t offset, length, image_bytes, zeros;
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
        EXPECT_EQ(payload.length, 12 + c.image_bytes + c.zeros) << c.offset << " " << c.length;
    }
}

TEST(DfuMessages, PercentageWrapsInThirtyTwoBits) {
    EXPECT_EQ(dfu::progress_percentage(0, 1000), 0U);
    EXPECT_EQ(dfu::progress_percentage(999, 1000), 99U);
    EXPECT_EQ(dfu::progress_percentage(42'949'672, 50'000'000), 85U);
    EXPECT_EQ(dfu::progress_percentage(42'949'673, 50'000'000), 0U);
    EXPECT_EQ(dfu::progress_percentage(45'000'000, 50'000'000), 4U);
    EXPECT_EQ(dfu::progress_percentage(5, 0), 0U);
}

TEST(DfuMessages, ShortMessageReadsAsZeroBeyondItsEnd) {
    const Bytes whole = {3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 8, 0, 0};
    EXPECT_EQ(dfu::ReceivedMessage(whole).image_id(), 0x0807U);
    EXPECT_EQ(dfu::ReceivedMessage({whole.data(), 17}).image_id(), 7U);
    EXPECT_EQ(dfu::ReceivedMessage({whole.data(), 16}).image_id(), 0U);
    EXPECT_EQ(dfu::ReceivedMessage({whole.data(), 1}).command_id(), 3U);
}
