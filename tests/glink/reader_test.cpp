// SPDX-License-Identifier: Apache-2.0
#include "tests/glink/channel_fixture.h"

using scripted::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Reader : public ChannelTest {};

TEST_F(Reader, ThirdEagainFailsTheReadWithoutAPause) {
    connect();
    read_fails(EAGAIN);
    read_fails(EAGAIN);
    arrives(Bytes(16, 1));
    EXPECT_EQ(packets().size(), 1u);
    EXPECT_THAT(errors(), IsEmpty());

    for (int read = 0; read < 3; ++read) {
        read_fails(EAGAIN);
    }
    EXPECT_EQ(packets().size(), 1u);
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR));
    EXPECT_EQ(
        platform().count("read MAX_GLINK_READ_RETRIES = 3 has finished & g_glink_err_cnt = 1"), 1u);
    EXPECT_EQ(platform().count("glink_error_handler received error = -11"), 1u);
    EXPECT_THAT(platform().transcript({"usleep", "sleep"}), IsEmpty());
}

TEST_F(Reader, EachFailedReadCountsTwiceUntilTheThresholdRestartsTheCount) {
    connect();
    for (int read = 0; read < 6; ++read) {
        read_fails(EIO);
    }
    platform().wait_until_idle();
    EXPECT_EQ(errors().size(), 6u);
    EXPECT_EQ(platform().count("GLINK_int triggred ssr g_glink_err_cnt = 12"), 1u);
    // A channel that keeps failing is read again at once first, then with pauses.
    EXPECT_EQ(platform().transcript({"usleep 10000"}).size(), 5u);
    read_fails(EIO);
    platform().wait_until_idle();
    // 1 at first, 11 before the restart, 1 after it.
    EXPECT_EQ(platform().count("read has failed with errno = 5, g_glink_err_cnt = 1"), 3u);
}

TEST_F(Reader, PassThatEndsNormallyRestartsTheCount) {
    connect();
    read_fails(EIO);
    arrives({});  // a read of 0 bytes is no error
    read_fails(EIO);
    platform().wait_until_idle();
    EXPECT_EQ(platform().count("read has failed with errno = 5, g_glink_err_cnt = 1"), 2u);
    EXPECT_EQ(errors().size(), 2u);
}

TEST_F(Reader, FailedPollCountsOnceAndIsReported) {
    connect();
    platform().script_poll_failure(ENOMEM);
    platform().script_poll_failure(ENOMEM);
    platform().script_poll_failure(0);  // a time-out
    platform().wait_until_idle();
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR, GLINK_IO_ERROR));
    EXPECT_EQ(platform().count("poll failed with errno = 12, g_glink_err_cnt = 1"), 1u);
    EXPECT_EQ(platform().count("GLINK_int poll time-out"), 1u);
}

TEST_F(Reader, UnregisteredEventsAreLoggedAndCostNoCpu) {
    connect();
    for (int event = 0; event < 110; ++event) {
        platform().script_poll_events(device_, POLLERR);
    }
    platform().wait_until_idle();
    EXPECT_EQ(platform().count("GLINK_int received unregistered pollevent = 8"), 110u);
    EXPECT_EQ(platform().transcript({"usleep 10000"}).size(), 99u);
    EXPECT_EQ(platform().transcript({"usleep 50000"}).size(), 10u);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Reader, HangUpReopensTheChannelAndReportsIt) {
    connect();
    platform().hang_up(device_);
    platform().wait_until_idle();
    EXPECT_THAT(
        platform().transcript({"open " + device_, "close"}),
        ElementsAre("open " + device_ + " = 3", "close " + device_, "open " + device_ + " = 3"));
    EXPECT_THAT(errors(), ElementsAre(GLINK_SSR));
    arrives(Bytes(16, 1));
    EXPECT_EQ(packets().size(), 1u);
    EXPECT_EQ(send(Bytes(28, 1)), 28);
}

TEST_F(Reader, HangUpTogetherWithDataWaitsForTheNextPass) {
    connect();
    // In this order: the read that follows the event waits for the packet, whoever is faster.
    platform().script_poll_events(device_, POLLIN | POLLHUP);
    arrives(Bytes(16, 1));
    EXPECT_EQ(packets().size(), 1u);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Reader, ChannelThatStaysAwayIsReportedAndComesBackWithTheNextConnect) {
    connect();
    platform().fail_opens(device_, {ENODEV, ENODEV, ENODEV});
    platform().hang_up(device_);
    platform().wait_until_idle();
    EXPECT_THAT(errors(), ElementsAre(GLINK_SSR));  // and not GLINK_OPEN_FAILED
    EXPECT_EQ(send(Bytes(28, 1)), -1);
    EXPECT_EQ(platform().count("is reconnecting, cannot send request"), 1u);

    EXPECT_EQ(connect(), 0);
    platform().wait_until_idle();
    arrives(Bytes(16, 1));
    EXPECT_EQ(packets().size(), 1u);
    EXPECT_EQ(send(Bytes(28, 1)), 28);
}

TEST_F(Reader, SendThatFailsInsideTheErrorCallbackIsNotReportedAgain) {
    connect();
    on_error_ = [this](glink_interface_error) {
        platform().script_write(device_, scripted::failure(EIO));
        send(Bytes(28, 1));
    };
    read_fails(EIO);
    platform().wait_until_idle();
    EXPECT_THAT(errors(), ElementsAre(GLINK_IO_ERROR));
    EXPECT_EQ(platform().count("glink_write has failed"), 1u);
    EXPECT_EQ(platform().count("glink_error_handler received error = -5"), 2u);
}

TEST_F(Reader, PacketThatArrivesWhileTheTransportIsDestroyedIsDropped) {
    connect();
    // The reader is inside a read when the destructor asks it to end; then the packet comes.
    platform().on_write("pipe:1", [this](const Bytes&) { arrives(Bytes(16, 1)); });
    platform().script_poll_events(device_, POLLIN);
    platform().wait_until_reading();
    transport_.reset();
    EXPECT_EQ(platform().count("indication is coming while connection is being closed"), 1u);
    EXPECT_EQ(platform().count("triggered event callback"), 0u);
}

}  // namespace
