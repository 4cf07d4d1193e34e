// SPDX-License-Identifier: Apache-2.0
#include "tests/glink/channel_fixture.h"

using scripted::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Write : public ChannelTest {
  protected:
    Write() { connect(); }
    void write_gives(scripted::Step step) { platform().script_write(device_, std::move(step)); }
};

TEST_F(Write, IsOnePacketAndReturnsItsLength) {
    EXPECT_EQ(send({1, 2, 3}), 3);
    EXPECT_THAT(platform().written(device_), ElementsAre(Bytes{1, 2, 3}));
    EXPECT_EQ(platform().count("complete bytes written= 3 retries 0"), 1u);
}

TEST_F(Write, ReturnsTheResultOfTheLastCallAndGoesOnAfterAPartialOne) {
    scripted::Step partial;
    partial.accepted = 20;
    write_gives(partial);
    EXPECT_EQ(send(Bytes(28, 1)), 8);
    EXPECT_EQ(platform().count("complete bytes written= 28 retries 0"), 1u);

    partial.accepted = 0;  // stops as if complete
    write_gives(partial);
    EXPECT_EQ(send(Bytes(28, 1)), 0);
    EXPECT_EQ(send({}), 0);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Write, NinetyNineBusyAnswersAreWaitedOutAndTheHundredthFails) {
    for (int attempt = 0; attempt < 99; ++attempt) {
        write_gives(scripted::failure(attempt % 2 == 0 ? EBUSY : EAGAIN));
    }
    EXPECT_EQ(send(Bytes(28, 1)), 28);
    EXPECT_EQ(platform().transcript({"usleep 5000"}).size(), 99u);
    EXPECT_EQ(platform().count("complete bytes written= 28 retries 99"), 1u);

    for (int attempt = 0; attempt < 100; ++attempt) {
        write_gives(scripted::failure(EBUSY));
    }
    EXPECT_EQ(send(Bytes(28, 1)), -EBUSY);
    EXPECT_EQ(platform().transcript({"usleep 5000"}).size(), 2 * 99u);
    EXPECT_EQ(platform().count("write MAX_GLINK_WRITE_RETRIES = 100 has finished on fd = 3 & "
                               "g_glink_err_cnt = 1"),
              1u);
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR));
}

TEST_F(Write, AnyOtherErrorFailsAtOnce) {
    write_gives(scripted::failure(EPIPE));
    EXPECT_EQ(send(Bytes(28, 1)), -EPIPE);
    EXPECT_EQ(platform().count("write has failed with errno = 32 & g_glink_err_cnt = 1"), 1u);
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR));
    EXPECT_THAT(platform().written(device_), IsEmpty());
}

TEST_F(Write, ClosedChannelSendsNothingAndIsNoError) {
    transport_->disconnect_interface();
    EXPECT_EQ(send(Bytes(28, 1)), 0);
    EXPECT_EQ(platform().count("write is not permitted as_s_chnl_fd is -1"), 1u);
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(platform().written(device_), IsEmpty());
}

TEST_F(Write, TakingMoreThanTwoSecondsIsLoggedInWholeSeconds) {
    scripted::Step slow;
    slow.takes_ns = 2'000'000'000;
    write_gives(slow);
    send(Bytes(28, 1));
    EXPECT_EQ(platform().count("time taken to complete glink_write"), 0u);
    slow.takes_ns = 3'999'999'999;
    write_gives(slow);
    send(Bytes(28, 1));
    EXPECT_EQ(platform().count("time taken to complete glink_write is 3.000000 secs"), 1u);
}

}  // namespace
