// SPDX-License-Identifier: Apache-2.0
#include "tests/glink/channel_fixture.h"

using scripted::platform;

namespace {

// The synchronous reads of a channel without a reader thread.
class Response : public ChannelTest {
  protected:
    Response() : ChannelTest("glink_pkt_marlo_custom_data", 44) {
        transport_->connect_interface(false);
    }
    int read_response() { return transport_->read_response(buffer_, sizeof(buffer_)); }

    unsigned char buffer_[24] = {};
};

TEST_F(Response, IsFilledOverSeveralReads) {
    arrives(Bytes(10, 1));
    arrives(Bytes(14, 2));
    EXPECT_EQ(read_response(), 0);
    EXPECT_EQ(buffer_[9], 1);
    EXPECT_EQ(buffer_[10], 2);
    EXPECT_EQ(buffer_[23], 2);
}

TEST_F(Response, TimesOutAfterTwoSeconds) {
    EXPECT_EQ(read_response(), -1);
    EXPECT_EQ(platform().now_ns(), 2'000'000'000);
    arrives(Bytes(10, 1));  // and nothing more
    EXPECT_EQ(read_response(), -1);
    EXPECT_EQ(platform().now_ns(), 4'000'000'000);
}

TEST_F(Response, FailsOnAHangUpAReadErrorAndAClosedChannel) {
    platform().script_poll_events(device_, POLLHUP);
    EXPECT_EQ(read_response(), -1);
    EXPECT_EQ(platform().count("glink_poll: SSR detected"), 1u);
    platform().script_poll_events(device_, POLLERR);
    EXPECT_EQ(read_response(), -1);
    platform().script_poll_failure(ENOMEM);
    EXPECT_EQ(read_response(), -1);
    read_fails(EIO);
    EXPECT_EQ(read_response(), -1);
    EXPECT_EQ(platform().count("read_response: Read error: Input/output error, rc -1"), 1u);
    transport_->disconnect_interface();
    EXPECT_EQ(read_response(), -1);
}

TEST_F(Response, EagainCountsAsTheByteCountItLooksLike) {
    read_fails(EAGAIN);  // -1 in unsigned arithmetic is more than any length
    EXPECT_EQ(read_response(), 0);

    arrives(Bytes(10, 1));
    read_fails(EAGAIN);  // 10 received become 9
    arrives(Bytes(15, 2));
    EXPECT_EQ(read_response(), 0);
    EXPECT_EQ(buffer_[8], 1);
    EXPECT_EQ(buffer_[9], 2);
}

TEST_F(Response, EmptyReadsEndWithTheResponseTime) {
    for (int read = 0; read < 1000; ++read) {
        arrives({});
    }
    EXPECT_EQ(read_response(), -1);
    EXPECT_EQ(platform().now_ns(), 2'000'000'000);
    EXPECT_EQ(platform().count("read_response: Zero length packet received"), 401u);
}

}  // namespace
