// SPDX-License-Identifier: Apache-2.0
#include <future>

#include "tests/allocation_limit.h"
#include "tests/glink/channel_fixture.h"

using scripted::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Connection : public ChannelTest {};

TEST_F(Connection, OpenIsTriedThreeTimesASecondApartThenReported) {
    platform().fail_opens(device_, {ENODEV, ENODEV, ENODEV});
    EXPECT_EQ(connect(), -1);
    EXPECT_THAT(
        platform().transcript({"open " + device_, "sleep"}),
        ElementsAre("open " + device_ + " = -1 19", "sleep 1", "open " + device_ + " = -1 19",
                    "sleep 1", "open " + device_ + " = -1 19", "sleep 1"));
    EXPECT_THAT(errors(), ElementsAre(GLINK_OPEN_FAILED));
    EXPECT_EQ(platform().count("open on dev node = " + device_ + " failed with errno = 19"), 3u);
    EXPECT_EQ(platform().count("glink_connect:"), 3u);  // waiting, failed, callback
    // The failed open is no obstacle to a later one.
    EXPECT_EQ(connect(), 0);
}

TEST_F(Connection, DescriptorZeroCountsAsAFailedOpen) {
    platform().next_descriptor(0);
    EXPECT_EQ(connect(), 0);
    EXPECT_THAT(platform().transcript({"open " + device_, "sleep"}),
                ElementsAre("open " + device_ + " = 0", "sleep 1", "open " + device_ + " = 3"));
    expected_open_descriptors_ = 1;  // descriptor 0 is nobody's
}

TEST_F(Connection, SecondConnectOnAnOpenChannelIsRefusedWithoutACallback) {
    EXPECT_EQ(connect(), 0);
    EXPECT_EQ(connect(), -1);
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(platform().count("GLINK_int channel is already opened"), 1u);
}

TEST_F(Connection, ErrorCallbackOfAFailedOpenMayDeleteTheTransport) {
    platform().fail_opens(device_, {ENOENT, ENOENT, ENOENT});
    // What the callable holds must outlive the transport that it deletes.
    std::string seen;
    transport_->register_cb(nullptr, [this, &seen, held = std::string(100, 'x')](auto) {
        transport_.reset();
        seen = held;
    });
    EXPECT_EQ(transport_->connect_interface(true), -1);
    EXPECT_EQ(seen.size(), 100u);
    EXPECT_EQ(transport_, nullptr);
}

TEST_F(Connection, DisconnectWithoutAReaderClosesTheChannelAlone) {
    EXPECT_EQ(transport_->connect_interface(false), 0);
    transport_->disconnect_interface();
    EXPECT_THAT(platform().transcript({"close", "write"}), ElementsAre("close " + device_));
    // And the channel can be opened again.
    EXPECT_EQ(transport_->connect_interface(false), 0);
}

TEST_F(Connection, ReaderWithoutAPipeStillDeliversAndEnds) {
    platform().fail_next_pipe(EMFILE);
    std::promise<void> delivered;
    transport_->register_cb([&delivered](uint8_t*, uint32_t) { delivered.set_value(); }, nullptr);
    arrives(Bytes(16, 1));
    EXPECT_EQ(connect(), 0);
    delivered.get_future().wait();
    transport_->disconnect_interface();
    EXPECT_EQ(platform().count("GLINK thread exit"), 1u);
    EXPECT_EQ(platform().count("poll time-out"), 0u);
}

TEST_F(Connection, ReaderThatCannotBeStartedIsAFailedOpen) {
    platform().fail_next_thread(EAGAIN);
    EXPECT_EQ(connect(), -1);
    EXPECT_THAT(errors(), ElementsAre(GLINK_OPEN_FAILED));
    EXPECT_EQ(platform().open_descriptors(), 0);
    EXPECT_EQ(connect(), 0);
}

TEST_F(Connection, CallbacksWithoutMemoryAreRefusedAndThoseBeforeStay) {
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::none);  // the recording takes memory
    {
        const AllocationLimit limit(sizeof(glink_register_cb) - 1);
        EXPECT_EQ(transport_->register_cb(nullptr, nullptr), -1);
    }
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
    EXPECT_EQ(connect(), 0);
    arrives(Bytes(16, 1));
    EXPECT_EQ(packets().size(), 1u);
}

TEST_F(Connection, ReaderEndsWhenTheWakeUpCannotBeWritten) {
    EXPECT_EQ(connect(), 0);
    platform().script_write("pipe:1", scripted::failure(EIO));
    transport_->disconnect_interface();
    EXPECT_EQ(platform().count("GLINK write err on wakup pipe rrrno = 5"), 1u);
    EXPECT_EQ(platform().count("GLINK thread exit"), 1u);
    EXPECT_EQ(connect(), 0);
    scripted::Step takes_nothing;
    takes_nothing.accepted = 0;
    platform().script_write("pipe:2", takes_nothing);
    transport_->disconnect_interface();
    EXPECT_EQ(platform().count("no way to join readthread"), 2u);
    EXPECT_EQ(platform().count("GLINK thread exit"), 2u);
}

}  // namespace
