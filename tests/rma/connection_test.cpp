// SPDX-License-Identifier: Apache-2.0
// How a connection is started and ends, and what is logged on the way.
#include "tests/allocation_limit.h"
#include "tests/rma/rma_fixture.h"

using scripted::platform;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::vector<std::string> kSteps = {"make",       "register", "connect",
                                         "disconnect", "delete",   "send"};

TEST_F(RmaTest, EachStartConnectsAnewAndEndsTheConnectionBefore) {
    rma_.startMarloRmaConnection();
    EXPECT_THAT(
        platform().transcript(kSteps),
        ElementsAre("make glink_pkt_marlo_rma 40", "register", "connect with reader", "disconnect",
                    "make glink_pkt_marlo_rma 40", "register", "connect with reader"));
    const Lines log = log_lines();
    ASSERT_EQ(log.size(), 6u);
    const std::string text =
        "startMarloRmaConnection: About to register callbacks with glinkInterface ";
    EXPECT_EQ(log[0], "D startMarloRmaConnection: startMarloRmaConnection: called\n");
    EXPECT_EQ(log[1], "E " + text + "(nil)");
    EXPECT_THAT(log[2], StartsWith("D " + text + "0x"));
    EXPECT_EQ(log[4].substr(1), log[2].substr(1));  // the transport before
    EXPECT_EQ(log[4][0], 'E');
    EXPECT_THAT(log[5], StartsWith("D " + text + "0x"));
    EXPECT_NE(log[5], log[2]);
}

TEST_F(RmaTest, AChannelThatCannotBeOpenedIsDropped) {
    script_.opens = false;
    rma_.startMarloRmaConnection();
    EXPECT_THAT(platform().transcript({"connect", "E rma_conn_error_cb", "delete"}),
                ElementsAre("connect with reader", "connect with reader",
                            HasSubstr("conn_error_cb =0"), "delete"));
    EXPECT_EQ(answer_to(message(rma::DISCONNECT)), "");
    EXPECT_EQ(log_lines().back(), "E send_aon_request: glinkInterface != nullptr");
    EXPECT_EQ(rma_.send_aon_request(7, nullptr, 0), 0);

    script_.opens = true;
    rma_.startMarloRmaConnection();
    EXPECT_EQ(logged("glinkInterface (nil)"), 2u);
    EXPECT_EQ(answer_to(message(rma::DISCONNECT)), "3: 0 0 0 0");
}

TEST_F(RmaTest, OtherErrorsLeaveTheConnection) {
    rma_.rma_conn_error_cb(GLINK_IO_ERROR);
    rma_.rma_conn_error_cb(GLINK_SSR);
    EXPECT_EQ(log_lines().back(), "E rma_conn_error_cb: conn_error_cb =2");
    EXPECT_EQ(logged("delete"), 0u);
    EXPECT_EQ(answer_to(message(rma::DISCONNECT)), "3: 0 0 0 0");
}

TEST_F(RmaTest, SendingGivesTheTransportsResult) {
    const uint8_t payload[] = {1, 0, 0, 0};
    EXPECT_EQ(rma_.send_aon_request(3, payload, 4), 16);
    EXPECT_EQ(rma_.send_aon_request(3, nullptr, 4), 12);
    EXPECT_EQ(rma_.send_aon_request(3, payload, 0), 12);
    EXPECT_THAT(platform().transcript({"send "}), ElementsAre("send 3: 1", "send 3:", "send 3:"));
    EXPECT_EQ(log_lines().back(), "D send_aon_request: send_aon_request 203865c8");
    script_.send_result = -EIO;
    EXPECT_EQ(rma_.send_aon_request(3, payload, 4), -EIO);
}

TEST_F(RmaTest, RequestsLogTheirSteps) {
    const auto expect = [this](const Bytes& request, const std::string& answer, Lines steps) {
        const size_t before = log_lines().size();
        EXPECT_EQ(answer_to(request), answer);
        Lines log = log_lines();
        log.erase(log.begin(), log.begin() + static_cast<ptrdiff_t>(before));
        if (!answer.empty()) {
            EXPECT_THAT(log.back(), StartsWith("D send_aon_request: send_aon_request "));
            log.pop_back();
        }
        steps.insert(steps.begin(), "D event: received res or event");
        EXPECT_EQ(log, steps);
    };
    Bytes connect = message(rma::CONNECT, {0, 7, 17, 16, 0, 0, 0xFFFFFFFF});
    connect[0] = 0xFE;  // a CRC that does not match
    Lines steps = {"D event: GLINK_int received CONNECT ",
                   "D event: GLINK_int received CRC 254 and CRC calculated -1883211669 size 40 ",
                   "D event: memory_id received CONNECT 7,partition_sz_bytes 16, client_priv -1 ",
                   "D event: size of file 16 "};
    expect(connect, "1: 4294967295 0 7 3 4096 4096", steps);
    steps.back() = "E event: file exists /data/vendor/aon/7177  ";
    expect(connect, "1: 4294967295 0 7 3 4096 4096", steps);
    expect(
        message(rma::DATA_WRITE, {7, 77, 3, 2, 0}, {'a', 'b'}), "513: 7 4294967295 77 2 0",
        {"D event: GLINK_int received DATA_WRITE and len 34", "D AppendToFile: write to file : 2"});
    expect(message(rma::DATA_READ, {5, 77, 2, 4}), "257: 5 4294967295 77 4 0 00 61 62 00",
           {"D event: GLINK_int received DATA_READ 1",
            "D readFile: readFile Path : /data/vendor/aon/7177 and size :4 ",
            "D readFile: read : 4", "D event: prepare DATA_READ data:"});
    expect(message(rma::DISCONNECT, {0, 9}), "3: 7 4294967295 9 0",
           {"D event: GLINK_int received DISCONNECT "});
    expect(message(3), "", {"E event: GLINK_int invalid cmd id"});
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
    EXPECT_THAT(files(), ElementsAre());
}

TEST_F(RmaTest, AShortRequestIsFilledUpWithZerosAndMakesNoPartition) {
    for (size_t size = 20; size < 40; ++size) {
        Bytes cut = message(rma::CONNECT, {5, 7, 0, 16, 0, 0, 0});
        cut.resize(size);
        EXPECT_EQ(answer_to(cut), "1: 0 0 7 3 4096 4096") << size;
    }
    EXPECT_EQ(log_lines().end()[-2], "E event: no partition is made for a CONNECT of 39 bytes");
    EXPECT_THAT(files(), ElementsAre());
    EXPECT_EQ(answer_to(message(rma::DATA_READ)), "257: 0 0 0 0 0");
    EXPECT_EQ(answer_to(message(rma::DATA_WRITE)), "513: 0 0 0 0 1");
    EXPECT_EQ(answer_to(message(rma::DISCONNECT)), "3: 7 0 0 0");
}

TEST_F(RmaTest, WithoutMemoryTheServiceLives) {
    connect(7, 0, 1 << 20);
    const Bytes request = message(rma::DATA_WRITE, {7, 7, 0, 100000, 0}, Bytes(100000, 0xAA));
    const size_t answers = logged("send ");
    {
        const AllocationLimit limit(99999);
        rma_.rma_conn_res_event_cb(request.data(), static_cast<uint32_t>(request.size()));
        EXPECT_EQ(log_lines().back(), "D event: memory allocation failed for buffer");
    }
    {
        const AllocationLimit limit(100031);  // the block, but not the message
        EXPECT_EQ(read(0, 100000), "");
        EXPECT_EQ(log_lines().back(),
                  "E send_aon_request: no memory for message 257 with 100020 bytes");
    }
    EXPECT_EQ(logged("send "), answers);
    EXPECT_EQ(contents("707"), std::string(1 << 20, '\0'));
    {
        const AllocationLimit limit((1 << 20) - 1);
        connect(8, 0, 1 << 20);
    }
    EXPECT_EQ(logged("memory allocation failed for dummy_data"), 1u);
    EXPECT_THAT(files(), ElementsAre("/data/vendor/aon/707"));
}

}  // namespace
