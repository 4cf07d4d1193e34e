// SPDX-License-Identifier: Apache-2.0
// The service behind a real transport with its reader thread.
#include <numeric>

#include "comhandler/client_wakelock.h"
#include "daemon/marlo_deamon_log.h"
#include "tests/rma/rma_fixture.h"

using scripted::platform;
using testing::ElementsAre;

namespace {

constexpr char kDevice[] = "/dev/glink_pkt_marlo_rma";

class RmaChannel : public testing::Test {
  protected:
    RmaChannel() {
        scripted::reset_platform();
        marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
        // The process's wakelock opens its files once, whichever test is first: not here.
        client_wakelock::get_instance();
        platform().device(kDevice);
        platform().directory(kDirectory, {});
    }
    ~RmaChannel() override { EXPECT_EQ(platform().open_descriptors(), 0); }

    static void arrives(const Bytes& packet) { platform().script_read(kDevice, {packet}); }

    static Lines answers() {
        platform().wait_until_idle();
        Lines lines;
        for (const Bytes& answer : platform().written(kDevice)) {
            lines.push_back(answer_text(answer));
        }
        return lines;
    }
};

TEST_F(RmaChannel, APartitionIsConnectedWrittenAndReadBack) {
    marlo_rma rma;
    rma.startMarloRmaConnection();
    Bytes block(96);
    std::iota(block.begin(), block.end(), uint8_t{1});
    arrives(message(rma::CONNECT, {0, 7, 1, 4096, 0, 0, 5}));
    // Longer than the first read of a packet.
    arrives(message(rma::DATA_WRITE, {7, 7, 4000, 96, 0}, block));
    arrives(message(rma::DATA_WRITE, {7, 7, 4000, 97, 0}, Bytes(97, 1)));
    arrives(message(rma::DATA_READ, {7, 7, 3999, 3}));
    arrives(message(rma::DISCONNECT, {0, 7}));
    EXPECT_THAT(answers(), ElementsAre("1: 5 0 7 3 4096 4096", "513: 7 5 7 96 0", "513: 7 5 7 97 1",
                                       "257: 7 5 7 3 0 00 01 02", "3: 7 5 7 0"));
    platform().hang_up(kDevice);
    arrives(message(rma::DATA_READ, {7, 7, 4093, 5}));
    EXPECT_EQ(answers().back(), "257: 7 5 7 5 0 5e 5f 60 00 00");
}

TEST_F(RmaChannel, TheNextPowerUpIsServedByOneReader) {
    marlo_rma rma;
    rma.startMarloRmaConnection();
    arrives(message(rma::CONNECT, {0, 7, 1, 16, 0, 0, 5}));
    EXPECT_EQ(answers().size(), 1u);
    rma.startMarloRmaConnection();
    EXPECT_EQ(platform().open_descriptors(), 3);  // one channel, one pipe
    arrives(message(rma::DISCONNECT, {0, 7}));
    EXPECT_THAT(answers(), ElementsAre("1: 5 0 7 3 4096 4096", "3: 7 5 7 0"));
}

// For ThreadSanitizer and AddressSanitizer: connections are started anew while requests arrive, and
// the service goes while it answers.
TEST_F(RmaChannel, AStartMayMeetRequests) {
    marlo_rma rma;
    for (int round = 0; round < 20; ++round) {
        rma.startMarloRmaConnection();
        arrives(message(rma::CONNECT, {0, 7, 1, 16, 0, 0, 5}));
        arrives(message(rma::DATA_READ, {7, 7, 0, 16}));
    }
    arrives(message(rma::DISCONNECT));
    EXPECT_EQ(platform().count("glinkInterface (nil)"), 1u);
}

}  // namespace
