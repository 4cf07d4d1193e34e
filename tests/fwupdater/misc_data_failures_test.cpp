// SPDX-License-Identifier: Apache-2.0
// How a misc-data transfer fails, and what it does then.
#include <cerrno>

#include "tests/allocation_limit.h"
#include "tests/fwupdater/misc_data_fixture.h"

using scripted::platform;

namespace {

constexpr char kPacketsFailed[] = "Some packets Data buffer failed";
constexpr Answer kTaken = {.limit = 20};

}  // namespace

TEST_F(MiscData, DataThatHasNoRoomFailsTheDataStep) {
    script_.usual_answer.limit = 16;
    begin(digits_);
    const std::string stuck = stopped(1, 0, kPacketsFailed);
    expect_request({stuck, stuck, stuck, kFailed});
    script_.usual_answer.limit = 4'000'000;
    begin(std::string(1'000'000, 'x'));
    const AllocationLimit limit(1'000'000);
    const std::string failed = attempt(1, {"send 0: 1 1000000 0"}, 0, kPacketsFailed);
    expect_request({failed, failed, failed, kFailed});
    EXPECT_EQ(logged("no memory for a packet with 1000000 bytes"), 3U);
}

TEST_F(MiscData, ResourceIsTriedThreeTimes) {
    begin(digits_);
    script_.answers = {{.status = 5}, {.status = -6}};
    expect_request({refused(1, 9, 5), refused(1, 9, -6), good_, kFinish});
    EXPECT_EQ(logged("E send_data_to_aon:"), 2U);
    EXPECT_EQ(logged(", send_data_to_aon: AON(error -6)"), 1U);
    EXPECT_EQ(logged(", send_start_data_buffer failed with : -6"), 1U);
    script_.answers = {{.status = 5}, {.status = 5}, {.status = 7}};
    expect_request({refused(1, 9, 5), refused(1, 9, 5), refused(1, 9, 7), kFailed});
}

TEST_F(MiscData, LastResourceAloneDecides) {
    platform().file(kFirmware, "ABCD");
    begin(digits_);
    const std::string first = refused(0, 4, 1);
    script_.answers = {{.status = 1}, {.status = 1}, {.status = 1}};
    expect_request({first, first, first, good_, kFinish});

    script_.answers = {kTaken, kTaken, kTaken, {.status = 1}, {.status = 1}, {.status = 1}};
    const std::string last = refused(1, 9, 1);
    expect_request({attempt(0, {"send 0: 0 4 0", "send 2: 0 4 1 ABCD", crc_packet(0, "ABCD")}, 0),
                    last, last, last, kFailed});
}

// The co-processor refuses one packet of the transfer, or does not answer it. Packet 0 is the
// start, 1 and 2 are data, 3 is the CRC, 4 the finish.
TEST_F(MiscData, EachPacketMayFail) {
    begin(digits_);
    struct Row {
        size_t packet;
        Answer answer;
        Lines before;  // the try that fails
        const char* line;
    };
    const std::string unchecked = stopped(4, 9, "CRC check for Data buffer failed");
    for (const Row& row : {
             Row{1,
                 {.status = 9},
                 {stopped(2, 9, kPacketsFailed)},
                 ", send_data_to_aon failed for some packets with: 9"},
             {1,
              {.error = EIO},
              {stopped(2, 0, kPacketsFailed)},
              ", send_data_to_aon: read failed (error Input/output error)"},
             {2, {.status = 9}, {}, ""},  // nobody looks at the last data packet's answer
             {3, {.status = 9}, {unchecked}, ", send_crc_data_buffer failed with: 9"},
             {4, {.status = 9}, {}, ""},
         }) {
        script_.answers.assign(row.packet, script_.usual_answer);
        script_.answers.push_back(row.answer);
        Lines lines = row.before;
        lines.insert(lines.end(), {good_, kFinish});
        expect_request(lines);
        EXPECT_GT(logged(row.line), 0U) << row.line;
    }
}

TEST_F(MiscData, AnswerStaysUntilTheNextOne) {
    platform().file(kFirmware, "ABCD");
    begin(digits_);
    script_.answers = {{.status = 7},  {.error = EIO}, {.error = EIO},
                       {.error = EIO}, kTaken,         {.brings_nothing = true}};
    const std::string first = refused(0, 4, 7);
    expect_request({first, first, first, refused(1, 9, 7), good_, kFinish});
    EXPECT_EQ(logged("send_start_data_buffer failed with : 7"), 4U);
    // A request begins with an answer of zeros: no limit, so all data in one packet.
    platform().remove(kFirmware);
    begin(digits_);
    script_.answers = {{.brings_nothing = true}};
    expect_request(
        {attempt(1, {"send 0: 1 9 0", "send 2: 1 9 1 " + digits_, digits_sent_.back()}, 0),
         kFinish});
}

TEST_F(MiscData, ResultOfSendingCountsOnceItIsAnswered) {
    begin("1234");
    const std::string sent =
        attempt(1, {"send 0: 1 4 0", "send 2: 1 4 1 1234", crc_packet(1, "1234")}, 0);
    script_.results = {-5};
    expect_request({refused(1, 4, 0), sent, kFinish});
    script_.results = {16, -5, 20, -5};  // neither the last data packet nor the finish packet
    expect_request({sent, kFinish});
    script_.results = {16, 20, 0};  // no failure to try again after, no success either
    expect_request({sent, kFailed});
    script_.results = {16, 20, 20, 0};
    expect_request(
        {sent, kFinish, "misc success ### Marlo Misc Data Resources Update finished. ###"});
}

TEST_F(MiscData, ChannelThatDoesNotOpenIsKept) {
    platform().file(kSettings, "1234");
    script_.opens = false;
    script_.usual_answer.error = EBADF;
    updater_.startMarloSHMUpdater(&recording_);
    expect({kOpening, "make glink_pkt_marlo_custom_data 44", "connect",
            "misc channel-error Marlo SHM Updater:: Glink channel open failed"});
    expect_request({refused(1, 4, 0), refused(1, 4, 0), refused(1, 4, 0), kFailed});
    updater_.endMarloSHMUpdater();
    expect({"delete", kDone});
    // And without a transport.
    updater_.loadAndSaveMiscFw();
    expect_request({unsent(1), unsent(1), unsent(1), kFailed});
    EXPECT_EQ(logged(", glinkInterface != nullptr"), 3U);
}
