// SPDX-License-Identifier: Apache-2.0
// How a connection is started and ends, and what is logged on the way.
#include "comhandler/client_wakelock.h"
#include "tests/allocation_limit.h"
#include "tests/rma/rma_fixture.h"

using scripted::platform;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

TEST_F(RmaTest, EachStartConnectsAnewAndEndsTheConnectionBefore) {
    rma_.startMarloRmaConnection();
    EXPECT_THAT(platform().transcript({"make", "connect", "disconnect", "delete"}),
                ElementsAre("make glink_pkt_marlo_rma 40", "connect with reader", "disconnect",
                            "delete", "make glink_pkt_marlo_rma 40", "connect with reader"));
    const std::string text =
        "startMarloRmaConnection: About to register callbacks with glinkInterface ";
    EXPECT_THAT(log_lines(),
                ElementsAre("D startMarloRmaConnection: startMarloRmaConnection: called\n",
                            "E " + text + "(nil)", StartsWith("D " + text + "0x"), _,
                            StartsWith("E " + text + "0x"), StartsWith("D " + text + "0x")));
}

TEST_F(RmaTest, AChannelThatCannotBeOpenedIsDropped) {
    script_.opens = false;
    rma_.startMarloRmaConnection();
    EXPECT_THAT(platform().transcript({"connect", "E rma_conn_error_cb", "delete"}),
                ElementsAre("connect with reader", "delete", "connect with reader",
                            HasSubstr("conn_error_cb =0"), "delete"));
    EXPECT_EQ(answer_to(message(rma::DISCONNECT)), "");
    EXPECT_EQ(log_lines().back(), "E send_aon_request: glinkInterface != nullptr");
    EXPECT_EQ(rma_.send_aon_request(7, nullptr, 0), 0);

    script_.opens = true;
    rma_.startMarloRmaConnection();
    EXPECT_EQ(logged("glinkInterface (nil)"), 2u);
    rma_.rma_conn_error_cb(GLINK_IO_ERROR);  // other errors leave the connection
    rma_.rma_conn_error_cb(GLINK_SSR);
    EXPECT_EQ(log_lines().back(), "E rma_conn_error_cb: conn_error_cb =2");
    EXPECT_EQ(answer_to(message(rma::DISCONNECT)), "3: 0 0 0 0");
    EXPECT_EQ(rma_.send_aon_request(3, nullptr, 4), 12);  // what the transport gives
    script_.send_result = -EIO;
    EXPECT_EQ(rma_.send_aon_request(3, nullptr, 0), -EIO);
}

TEST_F(RmaTest, RequestsLogTheirSteps) {
    Bytes connect = message(rma::CONNECT, {0, 7, 17, 16, 0, 0, 0xFFFFFFFF});
    connect[0] = 0xFE;  // a CRC that does not match
    EXPECT_EQ(answer_to(connect), "1: 4294967295 0 7 3 4096 4096");
    EXPECT_EQ(write(7, 3, {'a', 'b'}), "513: 7 4294967295 77 2 0");
    EXPECT_EQ(read(2, 4), "257: 5 4294967295 77 4 0 00 61 62 00");
    EXPECT_EQ(answer_to(message(rma::DISCONNECT, {0, 9})), "3: 7 4294967295 9 0");
    for (const char* line :
         {"D event: received res or event", "D event: GLINK_int received CONNECT ",
          "D event: GLINK_int received CRC 254 and CRC calculated -1883211669 size 40 ",
          "D event: memory_id received CONNECT 7,partition_sz_bytes 16, client_priv -1 ",
          "D event: size of file 16 ", "D event: GLINK_int received DATA_WRITE and len 34",
          "D AppendToFile: write to file : 2", "D event: GLINK_int received DATA_READ 1",
          "D readFile: readFile Path : /data/vendor/aon/7177 and size :4 ", "D readFile: read : 4",
          "D event: prepare DATA_READ data:", "D event: GLINK_int received DISCONNECT ",
          "D send_aon_request: send_aon_request fe264fac"}) {
        EXPECT_THAT(log_lines(), Contains(StartsWith(line)));
    }
}

TEST_F(RmaTest, WhatIsNoRequestIsNotAnswered) {
    for (const uint32_t id : {1u, 3u, 4u, 255u, 257u, 258u, 513u, 0xFFFFFFFFu}) {
        EXPECT_EQ(answer_to(message(id, {1, 2, 3, 4, 5, 6, 7})), "") << id;
    }
    for (size_t size = 0; size < 12; ++size) {
        Bytes cut = message(rma::CONNECT);
        cut.resize(size);
        EXPECT_EQ(answer_to(cut), "") << size;
    }
    EXPECT_EQ(logged("GLINK_int invalid cmd id"), 8u + 12u);
}

TEST_F(RmaTest, AShortRequestIsFilledUpWithZerosAndMakesNoPartition) {
    for (size_t size = 20; size < 40; ++size) {
        Bytes cut = message(rma::CONNECT, {5, 7, 0, 16, 0, 0, 0xFF01FFFF});
        cut.resize(size);
        const char* client[] = {"0", "255", "65535", "131071"};
        EXPECT_EQ(answer_to(cut),
                  std::string("1: ") + client[size < 36 ? 0 : size - 36] + " 0 7 3 4096 4096")
            << size;
    }
    EXPECT_EQ(log_lines().end()[-2], "E event: no partition is made for a CONNECT of 39 bytes");
    EXPECT_THAT(files(), ElementsAre());
    EXPECT_EQ(answer_to(message(rma::DATA_READ)), "257: 0 131071 0 0 0");
    EXPECT_EQ(answer_to(message(rma::DATA_WRITE)), "513: 0 131071 0 0 1");
    EXPECT_EQ(answer_to(message(rma::DISCONNECT)), "3: 7 131071 0 0");
}

TEST_F(RmaTest, WithoutMemoryTheServiceLives) {
    const std::string zeros(1 << 20, '\0');
    connect(7, 0, 1 << 20);
    const Bytes request = message(rma::DATA_WRITE, {7, 7, 0, 100000, 0}, Bytes(100000, 0xAA));
    const auto limited = [](size_t bytes, const auto& action) {
        const AllocationLimit limit(bytes);
        action();
    };
    limited(99999, [&] { rma_.rma_conn_res_event_cb(request.data(), 100032); });
    EXPECT_EQ(log_lines().back(), "D event: memory allocation failed for buffer");
    limited(100031, [&] { EXPECT_EQ(read(0, 100000), ""); });  // the block, but not the message
    EXPECT_EQ(log_lines().back(),
              "E send_aon_request: no memory for message 257 with 100020 bytes");
    limited(zeros.size() - 1, [&] { connect(8, 0, 1 << 20); });
    EXPECT_EQ(logged("memory allocation failed for dummy_data"), 1u);
    EXPECT_EQ(logged("send "), 2u);  // the connections' answers
    EXPECT_TRUE(contents("707") == zeros);
    EXPECT_THAT(files(), ElementsAre("/data/vendor/aon/707"));
}

// For ThreadSanitizer and AddressSanitizer: behind a genuine transport with its reader thread,
// connections are started anew while requests arrive, and the service goes while it answers.
TEST(RmaThreads, AStartMayMeetRequests) {
    constexpr char kDevice[] = "/dev/glink_pkt_marlo_rma";
    scripted::reset_platform();
    // The process's wakelock opens its files once, whichever test is first: not here.
    client_wakelock::get_instance();
    platform().device(kDevice);
    platform().directory(kDirectory, {});
    {
        marlo_rma rma;
        for (int round = 0; round < 20; ++round) {
            rma.startMarloRmaConnection();
            platform().script_read(kDevice, {message(rma::CONNECT, {0, 7, 1, 16, 0, 0, 5})});
            platform().script_read(kDevice, {message(rma::DATA_READ, {7, 7, 0, 16})});
        }
        platform().wait_until_idle();
        EXPECT_EQ(platform().open_descriptors(), 3);  // one channel, one pipe
        EXPECT_EQ(platform().written(kDevice).size(), 40u);
        platform().script_read(kDevice, {message(rma::DISCONNECT)});
    }
    EXPECT_EQ(platform().open_descriptors(), 0);
}

}  // namespace
