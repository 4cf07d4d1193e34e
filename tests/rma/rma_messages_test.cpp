// SPDX-License-Identifier: Apache-2.0
#include "rma/rma_messages.h"

#include <gtest/gtest.h>

#include "tests/bytes.h"

// Each message as another implementation writes it (Python's struct and zlib.crc32).
TEST(RmaMessages, GoldenRequests) {
    const Bytes connect = from_hex(
        "5dcc1f96 28000000 00000000 0b000000 07000000 11000000 10000000 00000000 "
        "00000000 04030201");
    EXPECT_EQ(rma::command_id(connect), rma::CONNECT);
    EXPECT_EQ(rma::total_length(connect), 40U);
    EXPECT_EQ(rma::received_crc(connect), 0x961FCC5DU);
    EXPECT_EQ(rma::connect_crc(connect), 0x961FCC5DU);
    Bytes longer = connect;
    longer.push_back(1);  // beyond what the CRC covers
    EXPECT_EQ(rma::connect_crc(longer), 0x961FCC5DU);
    const rma::ConnectRequest request = rma::connect_request(connect);
    EXPECT_EQ((std::array{request.memory_id, request.second_id, request.partition_size,
                          request.client_private}),
              (std::array{7U, 0x11U, 16U, 0x01020304U}));

    const Bytes disconnect = from_hex("59e89e4f 14000000 02000000 00000000 09000000");
    EXPECT_EQ(rma::command_id(disconnect), rma::DISCONNECT);
    EXPECT_EQ(rma::memory_id(disconnect), 9U);

    const Bytes write = from_hex(
        "a5b9e1c9 25000000 00020000 0b000000 07000000 03000000 05000000 00000000 "
        "a0a1a2a3 a4");
    EXPECT_EQ(rma::command_id(write), rma::DATA_WRITE);
    const rma::BlockRequest block = rma::block_request(write);
    EXPECT_EQ((std::array{block.request_word, block.memory_id, block.offset, block.size}),
              (std::array{11U, 7U, 3U, 5U}));
    const auto bytes = rma::block_to_write(write, block.size);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(Bytes(bytes->begin(), bytes->end()), (Bytes{0xA0, 0xA1, 0xA2, 0xA3, 0xA4}));
}

TEST(RmaMessages, GoldenAnswers) {
    const rma::BlockRequest request = {.request_word = 11, .memory_id = 7, .offset = 3, .size = 5};
    const Bytes block = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4};
    EXPECT_EQ(rma::build_message(rma::CONNECT_RESPONSE, rma::connect_response(0x01020304, 7), {}),
              from_hex("0f97710c 24000000 01000000 04030201 00000000 07000000 03000000 00100000 "
                       "00100000"));
    EXPECT_EQ(rma::build_message(rma::DISCONNECT_RESPONSE,
                                 rma::disconnect_response(7, 0x01020304, 9), {}),
              from_hex("6820d4a3 1c000000 03000000 07000000 04030201 09000000 00000000"));
    EXPECT_EQ(rma::build_message(rma::DATA_READ_RESPONSE,
                                 rma::block_response(request, 0x01020304, rma::DONE), block),
              from_hex("503f6194 25000000 01010000 0b000000 04030201 07000000 05000000 00000000 "
                       "a0a1a2a3 a4"));
    EXPECT_EQ(rma::build_message(rma::DATA_WRITE_RESPONSE,
                                 rma::block_response(request, 0x01020304, rma::NOT_WRITTEN), {}),
              from_hex("a7427e95 20000000 01020000 0b000000 04030201 07000000 05000000 01000000"));
    EXPECT_EQ(rma::build_message(3, {}, {}), from_hex("c8653820 0c000000 03000000"));
}
