// SPDX-License-Identifier: Apache-2.0
#include "rma/rma_messages.h"

#include <gtest/gtest.h>

using Bytes = std::vector<uint8_t>;

// Each message as another implementation writes it (Python's struct and zlib.crc32).
TEST(RmaMessages, GoldenRequests) {
    const Bytes connect = {0x5D, 0xCC, 0x1F, 0x96, 0x28, 0x00, 0x00, 0x00, 0x00, 0x00,
                           0x00, 0x00, 0x0B, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00,
                           0x11, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00,
                           0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x03, 0x02, 0x01};
    EXPECT_EQ(rma::command_id(connect), rma::CONNECT);
    EXPECT_EQ(rma::total_length(connect), 40U);
    EXPECT_EQ(rma::received_crc(connect), 0x961FCC5DU);
    EXPECT_EQ(rma::connect_crc(connect), 0x961FCC5DU);
    Bytes longer = connect;
    longer.push_back(1);  // beyond what the CRC covers
    EXPECT_EQ(rma::connect_crc(longer), 0x961FCC5DU);
    const rma::ConnectRequest request = rma::connect_request(connect);
    EXPECT_EQ(request.memory_id, 7U);
    EXPECT_EQ(request.second_id, 0x11U);
    EXPECT_EQ(request.partition_size, 16U);
    EXPECT_EQ(request.client_private, 0x01020304U);

    const Bytes disconnect = {0x59, 0xE8, 0x9E, 0x4F, 0x14, 0x00, 0x00, 0x00, 0x02, 0x00,
                              0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00};
    EXPECT_EQ(rma::command_id(disconnect), rma::DISCONNECT);
    EXPECT_EQ(rma::memory_id(disconnect), 9U);

    const Bytes write = {0xA5, 0xB9, 0xE1, 0xC9, 0x25, 0x00, 0x00, 0x00, 0x00, 0x02,
                         0x00, 0x00, 0x0B, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00,
                         0x03, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x00, 0x00, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4};
    EXPECT_EQ(rma::command_id(write), rma::DATA_WRITE);
    const rma::BlockRequest block = rma::block_request(write);
    EXPECT_EQ(block.request_word, 11U);
    EXPECT_EQ(block.memory_id, 7U);
    EXPECT_EQ(block.offset, 3U);
    EXPECT_EQ(block.size, 5U);
    const auto bytes = rma::block_to_write(write, block.size);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(Bytes(bytes->begin(), bytes->end()), (Bytes{0xA0, 0xA1, 0xA2, 0xA3, 0xA4}));
}

TEST(RmaMessages, GoldenAnswers) {
    const rma::BlockRequest request = {.request_word = 11, .memory_id = 7, .offset = 3, .size = 5};
    const Bytes block = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4};
    EXPECT_EQ(rma::build_message(rma::CONNECT_RESPONSE, rma::connect_response(0x01020304, 7), {}),
              (Bytes{0x0F, 0x97, 0x71, 0x0C, 0x24, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00,
                     0x04, 0x03, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00,
                     0x03, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00}));
    EXPECT_EQ(rma::build_message(rma::DISCONNECT_RESPONSE,
                                 rma::disconnect_response(7, 0x01020304, 9), {}),
              (Bytes{0x68, 0x20, 0xD4, 0xA3, 0x1C, 0x00, 0x00, 0x00, 0x03, 0x00,
                     0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x04, 0x03, 0x02, 0x01,
                     0x09, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(rma::build_message(rma::DATA_READ_RESPONSE,
                                 rma::block_response(request, 0x01020304, rma::DONE), block),
              (Bytes{0x50, 0x3F, 0x61, 0x94, 0x25, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x0B,
                     0x00, 0x00, 0x00, 0x04, 0x03, 0x02, 0x01, 0x07, 0x00, 0x00, 0x00, 0x05, 0x00,
                     0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4}));
    EXPECT_EQ(rma::build_message(rma::DATA_WRITE_RESPONSE,
                                 rma::block_response(request, 0x01020304, rma::NOT_WRITTEN), {}),
              (Bytes{0xA7, 0x42, 0x7E, 0x95, 0x20, 0x00, 0x00, 0x00, 0x01, 0x02, 0x00,
                     0x00, 0x0B, 0x00, 0x00, 0x00, 0x04, 0x03, 0x02, 0x01, 0x07, 0x00,
                     0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00}));
    EXPECT_EQ(rma::build_message(3, {}, {}),
              (Bytes{0xC8, 0x65, 0x38, 0x20, 0x0C, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00}));
}

TEST(RmaMessages, ShortOnesReadAsZeroBeyondTheirEnd) {
    const Bytes whole(40, 1);
    EXPECT_EQ(rma::connect_request({whole.data(), 38}).client_private, 0x0101U);
    EXPECT_EQ(rma::connect_request({whole.data(), 36}).client_private, 0U);
    EXPECT_EQ(rma::connect_request({whole.data(), 21}).second_id, 1U);
    EXPECT_EQ(rma::block_request({whole.data(), 24}).size, 0U);
    EXPECT_EQ(rma::command_id({whole.data(), 11}), std::nullopt);
    EXPECT_EQ(rma::connect_crc({whole.data(), 3}), 0U);
    EXPECT_EQ(rma::connect_crc({whole.data(), 4}), 0U);
}

TEST(RmaMessages, ABlockIsInsideItsMessageOrIsNone) {
    const Bytes whole(40, 1);
    struct Case {
        size_t message;
        uint32_t size;
        bool is_inside;
    };
    for (const Case& c : {Case{40, 8, true},
                          {40, 9, false},
                          {40, 0, true},
                          {32, 0, true},
                          {32, 1, false},
                          {31, 0, false},
                          {12, 0, false},
                          {40, 0xFFFFFFFF, false},
                          {40, 0xFFFFFFE8, false}}) {
        EXPECT_EQ(rma::block_to_write({whole.data(), c.message}, c.size).has_value(), c.is_inside)
            << c.message << " " << c.size;
    }
}
