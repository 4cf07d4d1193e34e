// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>

#include <stdexcept>

#include "glink/marlo_glink.h"
#include "platform/os.h"
#include "tests/allocation_limit.h"
#include "tests/fwupdater/recording.h"

namespace {

constexpr char kUpdateRequest[] = "send 1: 1 0 0 49 4d 47 20 55 50 44 54";

class Session : public UpdaterTest {
  protected:
    void begin() {
        table(
            "<Partition><img_id>5</img_id><Image_Path>five.bin</Image_Path></Partition>"
            "<Partition><img_id>5</img_id><Image_Path>other.bin</Image_Path></Partition>");
        image("five.bin", "ABCDE");
        image("other.bin", "wrong");
        image("./flash.bin", "flash");
        start();
    }
    // A fragment is asked for: what is reported of it, and the bytes that are sent.
    void expect_fragment(const std::vector<uint32_t>& words, int percentage, const char* bytes) {
        receive(5, words);
        const Lines lines = recording_.take();
        ASSERT_EQ(lines.size(), bytes == nullptr ? 1U : 2U);
        EXPECT_EQ(lines[0], "info Image ID: " + std::to_string(words[0]) + " flash write " +
                                std::to_string(percentage) + "% Completed...");
        if (bytes != nullptr) {
            EXPECT_EQ(lines[1], "send 6: " + std::to_string(words[0]) + " " +
                                    std::to_string(words[1]) + " " + std::to_string(words[2]) +
                                    bytes);
        }
    }
};

}  // namespace

TEST_F(Session, StartConnectsOnceAndLoadsEveryTime) {
    image("./partition_table.xml", "<t><Bank_1/></t>");
    updater_.startMarloDownloaderWithCallback(&recording_);
    expect({"make glink_pkt_marlo_dfu 44", "register", "connect with reader"});
    updater_.startMarloDownloaderWithCallback(&recording_);
    EXPECT_EQ(logged("Partition XML Parsing Done."), 2U);
    EXPECT_EQ(logged("About to register callbacks with glinkInterface"), 1U);
    updater_.endMarloDownloader();
    expect({"delete", "ended MarloDownloader END"});
    updater_.endMarloDownloader();
    expect({"ended MarloDownloader END"});
}

TEST_F(Session, EveryPlainMessageIsReportedByName) {
    begin();
    for (const auto& [id, line] : {std::pair{1U, "info Received MG_UPDT_REQ"},
                                   {2U, "info Received MG_UPDT_RESP"},
                                   {4U, "info Received IMG_INFO_RESP"},
                                   {6U, "info Received IMG_OFFSET_RESP"},
                                   {7U, "ended Received CANCEL_UPDT_REQ"},
                                   {8U, "ended Received CANCEL_UPDT_RESP"},
                                   {9U, "info Received IMG_UPDT_END_REQ"},
                                   {10U, "info Received IMG_UPDT_END_RESP"},
                                   {12U, "info Received SESSION_END_RESP"}}) {
        receive(id);
        expect({line});
    }
    for (const uint32_t id : {0U, 13U, 15U, 255U}) {
        receive(id);
        expect({"error Received INVALID CMD RESP"});
    }
    updater_.conn_res_event_cb(nullptr, 0);
    expect({"error Received INVALID CMD RESP"});
    EXPECT_EQ(logged("GLINK_int invalid cmd id"), 5U);
    EXPECT_EQ(logged(", GLINK_int received IMG_UPDT_END_REQ "), 1U);
}

TEST_F(Session, ImageInformation) {
    begin();
    updater_.marloFirmwareUpdateReq();
    recording_.take();
    os::sleep(12);
    receive(3, {5});
    expect({"info Time taken till from start = 12.000000", "info Received MG_UPDT_RESP for ID: 5",
            "send 4: 5 5 0", "info Updating Image ID: 5 size:5",
            "info Updating Device firmware with ID: 5"});
    receive(3, {0xFFFFFFFF});
    expect({"info Time taken till from start = 12.000000",
            "info Received MG_UPDT_RESP for ID: 4294967295", "send 4: 4294967295 0 0",
            "info Updating Image ID: 4294967295 size:0",
            "info Updating Device firmware with ID: 4294967295"});
    EXPECT_EQ(logged("sendmarloImageInfoRes -1"), 1U);
    EXPECT_EQ(logged("Time taken is 12.00000 seconds."), 2U);
}

TEST_F(Session, FragmentsAreWholeOrLeftOut) {
    begin();
    expect_fragment({5, 1, 3}, 20, " 42 43 44");
    expect_fragment({5, 4, 4}, 80, " 45 00 00 00");
    expect_fragment({5, 5, 4}, 100, "");
    expect_fragment({5, 0, 0}, 0, "");
    expect_fragment({9, 2, 4}, 0, "");
    expect_fragment({9, 2, 0xFFFFFFFF}, 0, "");
}

TEST_F(Session, HugeFragmentIsRefusedAndTheSessionLives) {
    begin();
    for (const uint32_t length : {(16U << 20) + 1, 0xFFFFFFFFU, 0xFFFFFFF4U}) {
        expect_fragment({5, 0, length}, 0, nullptr);
    }
    EXPECT_EQ(logged("E sendmarloImageOffsetRes:"), 3U);
    EXPECT_EQ(logged("fragment of 4294967295 bytes of image 5 is refused"), 1U);
    const AllocationLimit limit(1024 * 1024);
    expect_fragment({5, 0, 8U << 20}, 0, nullptr);
    EXPECT_EQ(logged("no memory for message 6 with 8388620 bytes"), 1U);
    expect_fragment({5, 0, 1}, 0, " 41");
}

TEST(MessageBufferTest, TheLargerBufferIsKept) {
    MessageBuffer buffer;
    std::vector<uint8_t> large = buffer.take();
    large.reserve(4096);
    std::vector<uint8_t> small = buffer.take();
    small.reserve(16);
    buffer.give_back(std::move(large));
    buffer.give_back(std::move(small));
    EXPECT_GE(buffer.take().capacity(), 4096U);
}

TEST_F(Session, EndIsAnsweredReleasesTheImagesAndMayBeFollowedByAnUpdate) {
    begin();
    receive(11);
    expect({"info Received SESSION_END_REQ",
            "info Time taken in sec to update Firmware = 1700000000.000000", "send 12: 0 0 0",
            "property 1", "success ### Marlo Firmware Update finished. ###"});
    EXPECT_FALSE(updater_.checkForFlashbin());
    transport_->fail(GLINK_IO_ERROR);  // finished: nothing to resume
    transport_->fail(GLINK_SSR);
    EXPECT_EQ(logged("E conn_error_cb:"), 2U);
    start();
    updater_.marloFirmwareUpdateReq();
    recording_.take();
    transport_->fail(GLINK_IO_ERROR);
    expect({"send 13: 1 0 0", "started ### Getting Marlo DFU State. ###"});
}

TEST_F(Session, UnsentEndReleasesTheImagesAndStaysUnfinished) {
    begin();
    script_.results = {0};
    updater_.sendSessionEndRes();
    expect({"send 12: 0 0 0"});
    EXPECT_FALSE(updater_.checkForFlashbin());
    transport_->fail(GLINK_SSR);
    expect({"send 13: 1 0 0", "started ### Getting Marlo DFU State. ###"});
}

TEST_F(Session, UpdateRequest) {
    begin();
    script_.results = {-5, 0};
    updater_.marloFirmwareUpdateReq();
    updater_.marloFirmwareUpdateReq();
    expect({kUpdateRequest, kUpdateRequest});
    updater_.marloFirmwareUpdateReq();
    expect({kUpdateRequest, "property 0", "started ### Starting Marlo Firmware Update. ###"});
    image("./flash.bin", "");
    start();
    updater_.marloFirmwareUpdateReq();
    expect({"error AON Flash bin file is empty or not present"});
}

TEST_F(Session, FailedOpenDeletesTheTransportInsideConnect) {
    script_.opens = false;
    updater_.startMarloDownloaderWithCallback(&recording_);
    expect({"make glink_pkt_marlo_dfu 44", "register", "connect with reader",
            "channel-error Marlo dfu channel open failed", "delete", "ended MarloDownloader END"});
    updater_.eraseAllRAWPartitionAndContinueDownload();
    updater_.getCurrentDFUStateAndContinueDownload();
    EXPECT_EQ(logged(", glinkInterface == nullptr"), 2U);
    marlo_fw_updater genuine;
    genuine.startMarloDownloaderWithCallback(&recording_);
    expect({"channel-error Marlo dfu channel open failed", "ended MarloDownloader END"});
    EXPECT_EQ(scripted::platform().transcript({"open /dev/"}).size(), 3U);
}

TEST_F(Session, RequestsWithoutATransportReturnZero) {
    const uint8_t payload[] = {1, 2};
    EXPECT_EQ(updater_.send_aon_request(12, payload, 2), 0);
    EXPECT_EQ(logged("E send_aon_request:"), 1U);
    EXPECT_EQ(logged(", glinkInterface != nullptr"), 1U);
    begin();
    EXPECT_EQ(updater_.send_aon_request(12, nullptr, 0), 16);
    script_.results = {7};
    EXPECT_EQ(updater_.send_aon_request(12, payload, 0), 7);
    expect({"send 12:", "send 12:"});
}

TEST_F(Session, WithoutACallbackEveryRequestIsStillAnswered) {
    begin();
    updater_.startMarloDownloaderWithCallback(nullptr);
    receive(3, {5});
    receive(5, {5, 0, 1});
    receive(14, {1, 0, 0, 0});
    receive(11);
    expect({"send 4: 5 5 0", "send 6: 5 0 1 41", "send 12: 0 0 0"});
    EXPECT_EQ(scripted::platform().property("persist.vendor.zt_aon.dfu_update"), "1");
    EXPECT_EQ(logged("Time taken is"), 0U);
}

TEST_F(Session, RuntimeErrorOfTheLastReportIsCaught) {
    struct Throwing : Recording {
        void handleDFUResponse(std::string, Status) override { throw std::runtime_error("why"); }
    } throwing;
    updater_.startMarloDownloaderWithCallback(&throwing);
    recording_.take();
    updater_.endMarloDownloader();
    expect({"delete"});
    EXPECT_EQ(logged("FATAL: failed : why"), 1U);
}

TEST_F(Session, MessageAboveFortyFourBytesEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    begin();
    receive(2, {0, 0, 0, 0, 0, 0, 0});
    expect({"info Received MG_UPDT_RESP"});
    EXPECT_DEATH(
        {
            __android_log_set_logger([](const __android_logger_data* data, const char* text) {
                fprintf(stderr, "priority %d %s\n", data->priority, text);
            });
            transport_->deliver(Bytes(45, 2));
        },
        "priority 7 conn_res_event_cb:[0-9]+, received message of 45 bytes");
}
