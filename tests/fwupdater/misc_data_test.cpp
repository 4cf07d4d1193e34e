// SPDX-License-Identifier: Apache-2.0
// How a misc-data transfer runs, how it fails, and what it does then.
#include <zlib.h>

#include <cerrno>
#include <stdexcept>

#include "tests/allocation_limit.h"
#include "tests/fwupdater/recording.h"

using scripted::platform;

namespace {

constexpr char kFirmware[] = "/vendor/bt_firmware/image/mrbtfw20.mbn";
constexpr char kSettings[] = "/vendor/bt_firmware/image/mrnv20.bin";

constexpr char kOpening[] = "misc started Marlo SHM Updater:: Waiting for Glink channel open";
constexpr char kStarting[] = "misc started ### Starting Marlo Misc Data Resources Update. ###";
constexpr char kFailed[] = "misc error ### Marlo Misc Data Resources Update Failed. ###";
constexpr char kDone[] = "misc erase-done Marlo Misc Data Resources Update Done";
constexpr char kFinish[] = "send 5: 0 0 0";
constexpr char kPacketsFailed[] = "Some packets Data buffer failed";
constexpr Answer kTaken = {.limit = 20};

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

// Misc-data transfers over a recording transport that takes four bytes of data a packet.
class MiscData : public UpdaterTest {
  protected:
    void SetUp() override {
        UpdaterTest::SetUp();
        script_.text = misc_packet_text;
        script_.usual_answer.limit = 20;
    }

    // Opens the channel, with these settings to send.
    void begin(const std::string& settings) {
        scripted::platform().file(kSettings, settings);
        updater_.startMarloSHMUpdater(&recording_);
        recording_.take();
    }

    // The request's steps behind its announcement; a text may hold several, one a line.
    void expect_request(const Lines& lines) {
        updater_.marloMiscDataUpdateReq();
        EXPECT_EQ(in_lines(recording_.take()), in_lines(lines, kStarting));
    }

    static std::string in_lines(const Lines& lines, std::string text = "") {
        for (const std::string& line : lines) {
            text += (text.empty() ? "" : "\n") + line;
        }
        return text;
    }

    // One try at a resource: what it sends, what it reports then, and how it ends.
    static std::string attempt(int type, Lines steps, int response_code,
                               const std::string& report = "") {
        const std::string number = std::to_string(type);
        steps.insert(steps.begin(), "misc info Sending Data buffer for type: " + number);
        if (!report.empty()) {
            steps.push_back("misc info " + report + " for type: " + number);
        }
        steps.push_back("misc info Finished transfer for type: " + number +
                        " with response code: " + std::to_string(response_code));
        return in_lines(steps);
    }

    // A try whose start packet is refused, or not answered: nothing follows it.
    static std::string refused(int type, size_t size, int response_code) {
        return attempt(type,
                       {"send 0: " + std::to_string(type) + " " + std::to_string(size) + " 0"},
                       response_code, "Sending Data buffer failed");
    }

    // A try that sends nothing, or nothing that is recorded.
    static std::string unsent(int type) {
        return attempt(type, {}, 0, "Sending Data buffer failed");
    }

    // A try of which only the first packets are sent.
    std::string stopped(ptrdiff_t packets, int response_code, const std::string& report) const {
        return attempt(1, {digits_sent_.begin(), digits_sent_.begin() + packets}, response_code,
                       report);
    }

    static std::string crc_packet(int type, const std::string& data) {
        char text[40];
        snprintf(
            text, sizeof(text), "send 4: %d 4 0 %08lx", type,
            crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
        return text;
    }

    // A resource of type 1 that takes two data packets, and its try.
    const std::string digits_ = "123456789";
    const Lines digits_sent_ = {"send 0: 1 9 0", "send 1: 1 4 1 1234", "send 2: 1 5 2 56789",
                                "send 4: 1 4 0 cbf43926"};
    const std::string good_ = attempt(1, digits_sent_, 0);
};

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
          ", prepare_send_data_buffer Last buffer with payload size :2 ",
          ", prepare_send_data_buffer: MAX_PAYLOAD_SIZE = 20)",
          ", send_start_data_buffer ret_val:16", ", send_data_to_aon", ", endMarloSHMUpdater"}) {
        EXPECT_GT(logged(line), 0U) << line;
    }
    EXPECT_EQ(logged("E prepare_send_data_buffer:"), 2U);  // the last buffers
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
    for (const uint32_t limit : {16U, 20U}) {  // even where the limit has no room for data
        script_.usual_answer.limit = limit;
        script_.results = {0};
        expect_request(
            {attempt(1, {"send 0: 1 18 0", "send 2: 1 18 1 " + data, crc_packet(1, data)}, 0),
             kFinish});
    }
    EXPECT_EQ(logged("uffer with payload"), 0U);  // nothing is said of data in one packet
    script_.results = {16, 20, 0};
    expect_request({attempt(1,
                            {"send 0: 1 18 0", "send 1: 1 4 1 1234", "send 1: 1 4 2 5678",
                             "send 2: 1 10 3 9123456789", crc_packet(1, data)},
                            0),
                    kFinish});
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
