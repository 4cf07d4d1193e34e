// SPDX-License-Identifier: Apache-2.0
// How a misc-data transfer fails, and what it does then.
#include <cerrno>

#include "comhandler/client_wakelock.h"
#include "tests/allocation_limit.h"
#include "tests/fwupdater/misc_data_fixture.h"

using scripted::platform;

TEST_F(MiscData, LimitWithoutRoomForDataFailsTheDataStep) {
    platform().file(kSettings, digits_);
    script_.usual_answer.limit = 16;
    begin();
    const Lines stuck =
        attempt(1, {"send 0: 1 9 0", "misc info Some packets Data buffer failed for type: 1"}, 0);
    expect_request(join({stuck, stuck, stuck, {kFailed}}));
}

TEST_F(MiscData, PacketThatMemoryHasNoRoomForFailsTheDataStep) {
    platform().file(kSettings, std::string(1'000'000, 'x'));
    script_.usual_answer.limit = 4'000'000;
    begin();
    const AllocationLimit limit(1'000'000);
    const Lines failed = attempt(
        1, {"send 0: 1 1000000 0", "misc info Some packets Data buffer failed for type: 1"}, 0);
    expect_request(join({failed, failed, failed, {kFailed}}));
    EXPECT_EQ(logged("no memory for a packet with 1000000 bytes"), 3U);
}

TEST_F(MiscData, ResourceIsTriedThreeTimes) {
    platform().file(kSettings, digits_);
    begin();
    script_.answers = {{.status = 5}, {.status = -6}};
    expect_request(
        join({refused(1, 9, 5), refused(1, 9, -6), attempt(1, digits_sent_, 0), {kFinish}}));
    EXPECT_EQ(logged("E send_data_to_aon:"), 2U);
    EXPECT_EQ(logged(", send_data_to_aon: AON(error -6)"), 1U);
    EXPECT_EQ(logged(", send_start_data_buffer failed with : -6"), 1U);
    script_.answers = {{.status = 5}, {.status = 5}, {.status = 7}};
    expect_request(join({refused(1, 9, 5), refused(1, 9, 5), refused(1, 9, 7), {kFailed}}));
}

TEST_F(MiscData, LastResourceAloneDecides) {
    platform().file(kFirmware, "ABCD");
    platform().file(kSettings, digits_);
    begin();
    const Lines first = refused(0, 4, 1);
    script_.answers = {{.status = 1}, {.status = 1}, {.status = 1}};
    expect_request(join({first, first, first, attempt(1, digits_sent_, 0), {kFinish}}));

    const Answer taken = {.limit = 20};
    script_.answers = {taken, taken, taken, {.status = 1}, {.status = 1}, {.status = 1}};
    const Lines last = refused(1, 9, 1);
    expect_request(
        join({attempt(0, {"send 0: 0 4 0", "send 2: 0 4 1 ABCD", crc_packet(0, "ABCD")}, 0),
              last,
              last,
              last,
              {kFailed}}));
}

// The co-processor refuses one packet of the transfer, or does not answer it. Packet 0 is the
// start, 1 and 2 are data, 3 is the CRC, 4 the finish.
TEST_F(MiscData, EachPacketMayFail) {
    platform().file(kSettings, digits_);
    begin();
    const auto fail_packet = [this](size_t packet, Answer answer) {
        script_.answers.assign(packet, script_.usual_answer);
        script_.answers.push_back(answer);
    };
    const auto up_to = [this](size_t packets, const std::string& report) {
        Lines lines(digits_sent_.begin(), digits_sent_.begin() + static_cast<ptrdiff_t>(packets));
        lines.push_back("misc info " + report);
        return lines;
    };
    const Lines good = attempt(1, digits_sent_, 0);

    fail_packet(1, {.status = 9});
    expect_request(join(
        {attempt(1, up_to(2, "Some packets Data buffer failed for type: 1"), 9), good, {kFinish}}));
    EXPECT_EQ(logged(", send_data_to_aon failed for some packets with: 9"), 1U);
    fail_packet(1, {.error = EIO});
    expect_request(join(
        {attempt(1, up_to(2, "Some packets Data buffer failed for type: 1"), 0), good, {kFinish}}));
    EXPECT_EQ(logged(", send_data_to_aon: read failed (error Input/output error)"), 1U);
    fail_packet(2, {.status = 9});  // nobody looks at the last data packet's answer
    expect_request(join({good, {kFinish}}));
    fail_packet(3, {.status = 9});
    expect_request(join({attempt(1, up_to(4, "CRC check for Data buffer failed for type: 1"), 9),
                         good,
                         {kFinish}}));
    EXPECT_EQ(logged(", send_crc_data_buffer failed with: 9"), 1U);
    fail_packet(4, {.status = 9});
    expect_request(join({good, {kFinish}}));
}

TEST_F(MiscData, AnswerStaysUntilTheNextOne) {
    platform().file(kFirmware, "ABCD");
    platform().file(kSettings, digits_);
    begin();
    const Answer taken = {.limit = 20};
    script_.answers = {{.status = 7},  {.error = EIO}, {.error = EIO},
                       {.error = EIO}, taken,          {.brings_nothing = true}};
    const Lines first = refused(0, 4, 7);
    expect_request(
        join({first, first, first, refused(1, 9, 7), attempt(1, digits_sent_, 0), {kFinish}}));
    EXPECT_EQ(logged("send_start_data_buffer failed with : 7"), 4U);
    // A request begins with an answer of zeros: no limit, so all data in one packet.
    platform().remove(kFirmware);
    begin();
    script_.answers = {{.brings_nothing = true}};
    expect_request(
        join({attempt(1, {"send 0: 1 9 0", "send 2: 1 9 1 " + digits_, digits_sent_.back()}, 0),
              {kFinish}}));
}

TEST_F(MiscData, ResultOfSendingCountsOnceItIsAnswered) {
    platform().file(kSettings, "1234");
    begin();
    const Lines sent = {"send 0: 1 4 0", "send 2: 1 4 1 1234", crc_packet(1, "1234")};
    script_.results = {-5};
    expect_request(join({refused(1, 4, 0), attempt(1, sent, 0), {kFinish}}));
    script_.results = {16, -5, 20, -5};  // neither the last data packet nor the finish packet
    expect_request(join({attempt(1, sent, 0), {kFinish}}));
    script_.results = {16, 20, 0};  // no failure to try again after, no success either
    expect_request(join({attempt(1, sent, 0), {kFailed}}));
    script_.results = {16, 20, 20, 0};
    expect_request(
        join({attempt(1, sent, 0),
              {kFinish, "misc success ### Marlo Misc Data Resources Update finished. ###"}}));
}

TEST_F(MiscData, ChannelThatDoesNotOpenIsKept) {
    platform().file(kSettings, "1234");
    script_.opens = false;
    script_.usual_answer.error = EBADF;
    updater_.startMarloSHMUpdater(&recording_);
    expect({kOpening, "make glink_pkt_marlo_custom_data 44", "connect",
            "misc channel-error Marlo SHM Updater:: Glink channel open failed"});
    expect_request(join({refused(1, 4, 0), refused(1, 4, 0), refused(1, 4, 0), {kFailed}}));
    updater_.endMarloSHMUpdater();
    expect({"delete", kDone});
}

TEST_F(MiscData, WithoutATransport) {
    platform().file(kSettings, "1234");
    begin();
    updater_.endMarloSHMUpdater();
    recording_.take();
    updater_.loadAndSaveMiscFw();
    expect_request(join({unsent(1), unsent(1), unsent(1), {kFailed}}));
    EXPECT_EQ(logged(", glinkInterface != nullptr"), 3U);
    EXPECT_EQ(logged("E send_data_to_aon:"), 3U);
}

namespace {

constexpr char kDevice[] = "/dev/glink_pkt_marlo_custom_data";

// Through the genuine transport.
class MiscDataChannel : public MiscData {
  protected:
    void SetUp() override {
        MiscData::SetUp();
        // The process's wakelock opens its files once, whichever test is first: not here.
        client_wakelock::get_instance();
        platform().file(kSettings, digits_);
    }

    Lines packets() {
        Lines lines;
        for (const Bytes& packet : platform().written(kDevice)) {
            lines.push_back("send " + misc_packet_text(packet));
        }
        return lines;
    }

    marlo_fw_updater genuine_;
};

}  // namespace

TEST_F(MiscDataChannel, EveryPacketIsAnsweredBeforeTheNext) {
    platform().device(kDevice);
    platform().on_write(kDevice, [this](const Bytes&) {
        platform().script_read(kDevice, {misc_answer(script_.usual_answer)});
    });
    genuine_.startMarloSHMUpdater(&recording_);
    genuine_.marloMiscDataUpdateReq();
    genuine_.endMarloSHMUpdater();
    EXPECT_EQ(packets(), join({digits_sent_, {kFinish}}));
    expect(join({{kOpening, kStarting}, attempt(1, {}, 0), {kDone}}));
    EXPECT_EQ(platform().open_descriptors(), 0);
    EXPECT_EQ(platform().now_ns(), 0);
    EXPECT_EQ(logged("releasing wakelock"), 10U);
}

TEST_F(MiscDataChannel, SilentCoProcessorCostsTwoSecondsATry) {
    platform().device(kDevice);
    genuine_.startMarloSHMUpdater(&recording_);
    genuine_.marloMiscDataUpdateReq();
    expect(join({{kOpening, kStarting}, unsent(1), unsent(1), unsent(1), {kFailed}}));
    EXPECT_EQ(platform().now_ns(), 6'000'000'000);
}

TEST_F(MiscDataChannel, MissingDeviceFailsTheTransfer) {
    genuine_.startMarloSHMUpdater(&recording_);
    genuine_.marloMiscDataUpdateReq();
    expect(join(
        {{kOpening, "misc channel-error Marlo SHM Updater:: Glink channel open failed", kStarting},
         unsent(1),
         unsent(1),
         unsent(1),
         {kFailed}}));
    EXPECT_EQ(platform().transcript({"open /dev/"}).size(), 3U);
    EXPECT_EQ(logged("send_data_to_aon: read failed (error Bad file descriptor)"), 3U);
}
