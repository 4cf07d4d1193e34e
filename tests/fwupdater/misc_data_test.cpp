// SPDX-License-Identifier: Apache-2.0
// How a misc-data transfer runs.
#include <cerrno>
#include <stdexcept>

#include "tests/allocation_limit.h"
#include "tests/fwupdater/misc_data_fixture.h"

using scripted::platform;

namespace {

std::string describe(const marlo_misc_resource& resource) {
    return std::to_string(resource.index) + " type " + std::to_string(resource.type) + " " +
           resource.path + " " + std::to_string(resource.size) + " " +
           std::string(resource.data.begin(), resource.data.end());
}

Lines load(const std::map<std::string, Offload_Type>& table = misc_file_types) {
    Lines lines;
    for (const auto& resource : load_misc_resources(table)) {
        lines.push_back(describe(*resource));
    }
    return lines;
}

}  // namespace

TEST_F(MiscData, FilesAreLoadedInTheOrderOfTheirPaths) {
    platform().file(kSettings, "set");
    EXPECT_EQ(load(), (Lines{std::string("0 type 1 ") + kSettings + " 3 set"}));
    EXPECT_EQ(logged(std::string("File open failed : ") + kFirmware), 1U);
    platform().file(kFirmware, "");
    EXPECT_EQ(load(), (Lines{std::string("0 type 0 ") + kFirmware + " 0 ",
                             std::string("1 type 1 ") + kSettings + " 3 set"}));
    platform().file(kFirmware, std::string(100'000, 'f'));
    {
        const AllocationLimit limit(99'999);
        EXPECT_EQ(load(), (Lines{std::string("0 type 1 ") + kSettings + " 3 set"}));
    }
    EXPECT_EQ(logged("no memory for the 100000 bytes of"), 1U);
    EXPECT_EQ(logged("E loadAndSaveMiscFw:"), 2U);
    EXPECT_EQ(logged("marlo_misc_resource : 3"), 3U);
    EXPECT_EQ(load({}), Lines{});
    EXPECT_EQ(logged(std::string(", readFile Path : ") + kSettings), 3U);
    EXPECT_EQ(logged(", Get And Save Misc Fw Done."), 4U);
    EXPECT_EQ(platform().open_descriptors(), 0);
}

TEST_F(MiscData, WholeTransfer) {
    platform().file(kFirmware, "ABCDEFGHIJ");
    platform().file(kSettings, digits_);
    updater_.startMarloSHMUpdater(&recording_);
    expect({kOpening, "make glink_pkt_marlo_custom_data 44", "connect"});
    expect_request(join({attempt(0,
                                 {"send 0: 0 10 0", "send 1: 0 4 1 ABCD", "send 1: 0 4 2 EFGH",
                                  "send 2: 0 2 3 IJ", crc_packet(0, "ABCDEFGHIJ")},
                                 0),
                         attempt(1, digits_sent_, 0),
                         {kFinish}}));
    updater_.endMarloSHMUpdater();
    expect({"delete", kDone});
    updater_.endMarloSHMUpdater();
    expect({kDone});

    for (const char* line :
         {", startMarloSHMUpdater", ", About to connect with glinkInterface 0x",
          ", ### Starting Marlo Misc Data Resources Update. ###",
          ", prepare_send_data_buffer : Type:1 and res size:9 ", ", send_start_data_buffer type:1",
          ", send_crc_data_buffer type: 1 value: cbf43926", ", send_finish_data_buffer",
          ", prepare_send_data_buffer 2 Buffer with payload size :4 ",
          ", prepare_send_data_buffer Last buffer with payload size :2 "}) {
        EXPECT_EQ(logged(line), 1U) << line;
    }
    EXPECT_EQ(logged(", prepare_send_data_buffer: MAX_PAYLOAD_SIZE = 20)"), 2U);
    EXPECT_EQ(logged(", send_start_data_buffer ret_val:16"), 2U);
    EXPECT_EQ(logged(", send_data_to_aon"), 10U);
    EXPECT_EQ(logged(", endMarloSHMUpdater"), 2U);
    EXPECT_EQ(platform().transcript({"E "}).size(), 2U);  // the last buffers
    EXPECT_EQ(logged("E prepare_send_data_buffer:"), 2U);
}

TEST_F(MiscData, LoadingAppendsAndStartingBeginsAfresh) {
    begin();
    expect_request({kFailed});  // nothing to send
    platform().file(kSettings, "");
    const Lines empty = {"send 0: 1 0 0", "send 2: 1 0 1", "send 4: 1 4 0 00000000"};
    EXPECT_EQ(updater_.loadAndSaveMiscFw(), 1U);
    EXPECT_EQ(updater_.loadAndSaveMiscFw(), 1U);
    expect_request(join({attempt(1, empty, 0), attempt(1, empty, 0), {kFinish}}));
    updater_.startMarloSHMUpdater(&recording_);  // the channel is open
    expect({kOpening});
    expect_request(join({attempt(1, empty, 0), {kFinish}}));
    EXPECT_EQ(updater_.truncateMiscFwResources(), 0);
    expect_request({kFailed});
}

TEST_F(MiscData, OnePacketWhereTheLimitIsLargeEnough) {
    platform().file(kSettings, std::string(100, 'x'));
    script_.usual_answer.limit = 4096;
    begin();
    expect_request(join({attempt(1,
                                 {"send 0: 1 100 0", "send 2: 1 100 1 " + std::string(100, 'x'),
                                  crc_packet(1, std::string(100, 'x'))},
                                 0),
                         {kFinish}}));
    EXPECT_EQ(logged("Buffer with payload"), 0U);
    EXPECT_EQ(logged("Last buffer"), 0U);
}

TEST_F(MiscData, NothingSentYetAnsweredPutsTheRestIntoOnePacket) {
    platform().file(kSettings, digits_ + digits_);
    begin();
    const std::string crc = crc_packet(1, digits_ + digits_);
    script_.results = {0};
    expect_request(
        join({attempt(1, {"send 0: 1 18 0", "send 2: 1 18 1 " + digits_ + digits_, crc}, 0),
              {kFinish}}));
    script_.results = {16, 20, 0};
    expect_request(join({attempt(1,
                                 {"send 0: 1 18 0", "send 1: 1 4 1 1234", "send 1: 1 4 2 5678",
                                  "send 2: 1 10 3 9123456789", crc},
                                 0),
                         {kFinish}}));
}

TEST_F(MiscData, TransportOfADownloadIsUsedAsItIs) {
    platform().file(kSettings, digits_);
    Recording download;
    updater_.startMarloDownloaderWithCallback(&download);
    recording_.take();
    updater_.startMarloSHMUpdater(&recording_);
    expect({kOpening});
    expect_request(join({attempt(1, digits_sent_, 0), {kFinish}}));
    updater_.endMarloSHMUpdater();
    expect({"delete", kDone});
    EXPECT_EQ(download.take(), Lines{});
}

TEST_F(MiscData, WithoutACallback) {
    platform().file(kSettings, digits_);
    begin();
    updater_.startMarloSHMUpdater(nullptr);
    updater_.marloMiscDataUpdateReq();
    updater_.endMarloSHMUpdater();
    expect(join({digits_sent_, {kFinish, "delete"}}));
}

TEST_F(MiscData, WithoutAnAnswerRecordNothingIsRead) {
    begin();
    Bytes packet(16, 0);
    script_.usual_answer.error = EIO;
    script_.results = {7};
    EXPECT_EQ(updater_.send_data_to_aon(packet, nullptr), 7);
    const Bytes data(4081, 'x');  // one byte more than fits into 4096
    script_.results = {16};
    EXPECT_EQ(updater_.prepare_send_data_buffer(1, data, nullptr), 20);
    const Bytes more(4082, 'x');
    EXPECT_EQ(updater_.prepare_send_data_buffer(1, more, nullptr), 20);
    script_.results = {16, -5};
    EXPECT_EQ(updater_.prepare_send_data_buffer(1, more, nullptr), -1);
    EXPECT_EQ(logged("Last buffer with payload size :2 "), 1U);
    EXPECT_EQ(logged("MAX_PAYLOAD_SIZE"), 0U);
    recording_.take();
}

TEST_F(MiscData, CallbackMayEndTheTransfer) {
    struct Ending : Recording {
        marlo_fw_updater* updater = nullptr;
        void handleSHMResponse(std::string message, Status status) override {
            Recording::handleSHMResponse(message, status);
            if (message.starts_with("Finished") && updater != nullptr) {
                std::exchange(updater, nullptr)->endMarloSHMUpdater();
            }
        }
    } ending;
    platform().file(kFirmware, "A");
    platform().file(kSettings, "1234");
    updater_.startMarloSHMUpdater(&ending);
    ending.take();
    ending.updater = &updater_;
    updater_.marloMiscDataUpdateReq();
    recording_.take();
    EXPECT_EQ(
        ending.take(),
        join(
            {{kStarting}, attempt(0, {}, 0), {kDone}, unsent(1), unsent(1), unsent(1), {kFailed}}));
}

TEST_F(MiscData, RuntimeErrorOfTheLastReportIsCaught) {
    struct Throwing : Recording {
        void handleSHMResponse(std::string, Status status) override {
            if (status == STATUS_ERASE_DONE) {
                throw std::runtime_error("why");
            }
        }
    } throwing;
    updater_.startMarloSHMUpdater(&throwing);
    recording_.take();
    updater_.endMarloSHMUpdater();
    expect({"delete"});
    EXPECT_EQ(logged(", FATAL: failed : why"), 1U);
    EXPECT_EQ(logged("E endMarloSHMUpdater:"), 1U);
}
