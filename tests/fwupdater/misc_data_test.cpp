// SPDX-License-Identifier: Apache-2.0
// How a misc-data transfer runs.
#include <cerrno>
#include <stdexcept>

#include "tests/allocation_limit.h"
#include "tests/fwupdater/misc_data_fixture.h"

using scripted::platform;

namespace {

Lines load() {
    Lines lines;
    for (const auto& resource : load_misc_resources(misc_file_types)) {
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
    const std::string settings = std::string(" type 1 ") + kSettings + " 3 set";
    EXPECT_EQ(load(), Lines{"0" + settings});
    EXPECT_EQ(logged(std::string("File open failed : ") + kFirmware), 1U);
    platform().file(kFirmware, "");
    EXPECT_EQ(load(), (Lines{std::string("0 type 0 ") + kFirmware + " 0 ", "1" + settings}));
    platform().file(kFirmware, std::string(100'000, 'f'));
    const AllocationLimit limit(99'999);
    EXPECT_EQ(load(), Lines{"0" + settings});
    EXPECT_EQ(logged("no memory for the 100000 bytes of"), 1U);
    EXPECT_EQ(logged("E loadAndSaveMiscFw:"), 2U);
    EXPECT_EQ(logged("marlo_misc_resource : 3"), 3U);
    EXPECT_EQ(logged(std::string(", readFile Path : ") + kSettings), 3U);
    EXPECT_EQ(logged(", Get And Save Misc Fw Done."), 3U);
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
    EXPECT_EQ(updater_.truncateMiscFwResources(), 0);
    expect_request({kFailed});  // nothing to send
    const std::string empty =
        attempt(1, {"send 0: 1 0 0", "send 2: 1 0 1", "send 4: 1 4 0 00000000"}, 0);
    EXPECT_EQ(updater_.loadAndSaveMiscFw(), 1U);
    EXPECT_EQ(updater_.loadAndSaveMiscFw(), 1U);
    expect_request({empty, empty, kFinish});
    updater_.startMarloSHMUpdater(&recording_);  // the channel is open
    expect({kOpening});
    expect_request({empty, kFinish});
}

TEST_F(MiscData, NothingSentYetAnsweredPutsTheRestIntoOnePacket) {
    const std::string data = digits_ + digits_;
    begin(data);
    script_.results = {0};
    expect_request(
        {attempt(1, {"send 0: 1 18 0", "send 2: 1 18 1 " + data, crc_packet(1, data)}, 0),
         kFinish});
    EXPECT_EQ(logged("uffer with payload"), 0U);  // nothing is said of data in one packet
    script_.results = {16, 20, 0};
    expect_request({attempt(1,
                            {"send 0: 1 18 0", "send 1: 1 4 1 1234", "send 1: 1 4 2 5678",
                             "send 2: 1 10 3 9123456789", crc_packet(1, data)},
                            0),
                    kFinish});
}

TEST_F(MiscData, TransportOfADownloadIsUsedAsItIs) {
    updater_.startMarloDownloaderWithCallback(&recording_);
    platform().file(kSettings, digits_);
    recording_.take();
    updater_.startMarloSHMUpdater(&recording_);
    expect({kOpening});
    expect_request({good_, kFinish});
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
    script_.usual_answer.error = EIO;
    const Bytes data(4081, 'x');  // one byte more than fits into 4096
    script_.results = {7};
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
    platform().file(kFirmware, "A");
    begin("1234");
    recording_.on_report = [this](const std::string& line) {
        if (line == kDone) {
            throw std::runtime_error("why");
        }
        if (line.starts_with("misc info Finished transfer for type: 0")) {
            updater_.endMarloSHMUpdater();
        }
    };
    const std::string whole =
        attempt(0, {"send 0: 0 1 0", "send 2: 0 1 1 A", crc_packet(0, "A")}, 0);
    expect_request({whole, "delete", kDone, unsent(1), unsent(1), unsent(1), kFailed});
    EXPECT_EQ(logged(", FATAL: failed : why"), 1U);
}
