// SPDX-License-Identifier: Apache-2.0
// How a misc-data transfer runs.
#include <cerrno>
#include <stdexcept>

#include "tests/allocation_limit.h"
#include "tests/fwupdater/misc_data_fixture.h"

using scripted::platform;

namespace {

Lines load(const std::map<std::string, Offload_Type>& table = misc_file_types) {
    Lines lines;
    for (const auto& resource : load_misc_resources(table)) {
        lines.push_back(std::to_string(resource->index) + " type " +
                        std::to_string(resource->type) + " " + resource->path + " " +
                        std::to_string(resource->size) + " " +
                        std::string(resource->data.begin(), resource->data.end()));
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
    expect_request({attempt(0,
                            {"send 0: 0 10 0", "send 1: 0 4 1 ABCD", "send 1: 0 4 2 EFGH",
                             "send 2: 0 2 3 IJ", crc_packet(0, "ABCDEFGHIJ")},
                            0),
                    good_, kFinish});
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
    begin("");
    updater_.truncateMiscFwResources();
    expect_request({kFailed});  // nothing to send
    const std::string empty =
        attempt(1, {"send 0: 1 0 0", "send 2: 1 0 1", "send 4: 1 4 0 00000000"}, 0);
    EXPECT_EQ(updater_.loadAndSaveMiscFw(), 1U);
    EXPECT_EQ(updater_.loadAndSaveMiscFw(), 1U);
    expect_request({empty, empty, kFinish});
    updater_.startMarloSHMUpdater(&recording_);  // the channel is open
    expect({kOpening});
    expect_request({empty, kFinish});
    EXPECT_EQ(updater_.truncateMiscFwResources(), 0);
    expect_request({kFailed});
}

TEST_F(MiscData, OnePacketWhereTheLimitIsLargeEnough) {
    script_.usual_answer.limit = 4096;
    const std::string data(100, 'x');
    begin(data);
    expect_request(
        {attempt(1, {"send 0: 1 100 0", "send 2: 1 100 1 " + data, crc_packet(1, data)}, 0),
         kFinish});
    EXPECT_EQ(logged("Buffer with payload"), 0U);
    EXPECT_EQ(logged("Last buffer"), 0U);
}

TEST_F(MiscData, NothingSentYetAnsweredPutsTheRestIntoOnePacket) {
    const std::string data = digits_ + digits_;
    begin(data);
    script_.results = {0};
    expect_request(
        {attempt(1, {"send 0: 1 18 0", "send 2: 1 18 1 " + data, crc_packet(1, data)}, 0),
         kFinish});
    script_.results = {16, 20, 0};
    expect_request({attempt(1,
                            {"send 0: 1 18 0", "send 1: 1 4 1 1234", "send 1: 1 4 2 5678",
                             "send 2: 1 10 3 9123456789", crc_packet(1, data)},
                            0),
                    kFinish});
}

TEST_F(MiscData, TransportOfADownloadIsUsedAsItIs) {
    Recording download;
    updater_.startMarloDownloaderWithCallback(&download);
    begin(digits_);
    expect_request({good_, kFinish});
    updater_.endMarloSHMUpdater();
    expect({"delete", kDone});
    EXPECT_EQ(download.take(), Lines{});
}

TEST_F(MiscData, WithoutACallback) {
    begin(digits_);
    updater_.startMarloSHMUpdater(nullptr);
    updater_.marloMiscDataUpdateReq();
    updater_.endMarloSHMUpdater();
    Lines steps = digits_sent_;
    steps.insert(steps.end(), {kFinish, "delete"});
    expect(steps);
}

TEST_F(MiscData, WithoutAnAnswerRecordNothingIsRead) {
    begin("");
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
    EXPECT_EQ(logged(" 1 Buffer with payload size :4080 "), 2U);
    EXPECT_EQ(logged("Last buffer with payload size :2 "), 1U);
    EXPECT_EQ(logged("MAX_PAYLOAD_SIZE"), 0U);
    recording_.take();
}

TEST_F(MiscData, CallbackMayEndTheTransferAndThrowAtItsEnd) {
    struct Ending : Recording {
        marlo_fw_updater* updater = nullptr;
        void handleSHMResponse(std::string message, Status status) override {
            Recording::handleSHMResponse(message, status);
            if (message.starts_with("Finished") && updater != nullptr) {
                std::exchange(updater, nullptr)->endMarloSHMUpdater();
            }
            if (status == STATUS_ERASE_DONE) {
                throw std::runtime_error("why");
            }
        }
    } ending;
    platform().file(kFirmware, "A");
    begin("1234");
    updater_.startMarloSHMUpdater(&ending);
    ending.take();
    ending.updater = &updater_;
    updater_.marloMiscDataUpdateReq();
    recording_.take();
    EXPECT_EQ(in_lines(ending.take()), in_lines({kStarting, attempt(0, {}, 0), kDone, unsent(1),
                                                 unsent(1), unsent(1), kFailed}));
    EXPECT_EQ(logged(", FATAL: failed : why"), 1U);
    EXPECT_EQ(logged("E endMarloSHMUpdater:"), 1U);
}
