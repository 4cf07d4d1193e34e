// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>

#include <stdexcept>

#include "daemon/marlo_deamon_log.h"
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
};

// Both take everything and keep nothing.
class SilentTransport : public glink_interface {
  public:
    int register_cb(glink_data_callback, glink_error_callback) override { return 0; }
    int send_request(unsigned char*, unsigned int len) override { return static_cast<int>(len); }
    int read_response(unsigned char*, unsigned int) override { return -1; }
    int connect_interface(bool) override { return 0; }
    void disconnect_interface() override {}
};
class SilentCallback : public marlo_fw_updater::Callback {
    void handleDFUResponse(std::string, Status) override {}
    void handleSHMResponse(std::string, Status) override {}
    void onDFUStateRecived(DFUState) override {}
};

}  // namespace

TEST_F(Session, StartConnectsOnceAndLoadsEveryTime) {
    image("./partition_table.xml", "<t><Bank_1/></t>");
    updater_.startMarloDownloaderWithCallback(&recording_);
    updater_.startMarloDownloaderWithCallback(&recording_);
    expect({"make glink_pkt_marlo_dfu 44", "connect with reader"});
    EXPECT_EQ(logged("Partition XML Parsing Done."), 2U);
    EXPECT_EQ(logged("About to register callbacks with glinkInterface"), 1U);
    updater_.endMarloDownloader();
    updater_.endMarloDownloader();
    expect({"delete", "ended MarloDownloader END", "ended MarloDownloader END"});
}

TEST_F(Session, EveryPlainMessageIsReportedByName) {
    begin();
    const Lines names = {"MG_UPDT_REQ",
                         "MG_UPDT_RESP",
                         "",
                         "IMG_INFO_RESP",
                         "",
                         "IMG_OFFSET_RESP",
                         "CANCEL_UPDT_REQ",
                         "CANCEL_UPDT_RESP",
                         "IMG_UPDT_END_REQ",
                         "IMG_UPDT_END_RESP",
                         "",
                         "SESSION_END_RESP"};
    for (uint32_t id = 1; id <= names.size(); ++id) {
        if (const std::string& name = names[id - 1]; !name.empty()) {
            receive(id);
            expect({(name.starts_with("CANCEL") ? "ended Received " : "info Received ") + name});
        }
    }
    for (const uint32_t id : {0U, 13U, 15U, 255U}) {
        receive(id);
        expect({"error Received INVALID CMD RESP"});
    }
    EXPECT_EQ(logged("GLINK_int invalid cmd id"), 4U);
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
    EXPECT_EQ(logged("sendmarloImageInfoRes 5"), 1U);
    EXPECT_EQ(logged("Time taken is 12.00000 seconds."), 1U);
}

TEST_F(Session, FragmentsAreServedAndHugeOnesRefused) {
    begin();
    receive(5, {5, 4, 4});
    expect({"info Image ID: 5 flash write 80% Completed...", "send 6: 5 4 4 45 00 00 00"});
    receive(5, {9, 2, 0xFFFFFFFF});  // there is no such image
    expect({"info Image ID: 9 flash write 0% Completed...", "send 6: 9 2 4294967295"});
    const std::string report = "info Image ID: 5 flash write 0% Completed...";
    for (const uint32_t length : {(16U << 20) + 1, 0xFFFFFFFFU, 0xFFFFFFF4U}) {
        receive(5, {5, 0, length});
        expect({report});
    }
    EXPECT_EQ(logged("E sendmarloImageOffsetRes:"), 3U);
    EXPECT_EQ(logged("fragment of 4294967295 bytes of image 5 is refused"), 1U);
    const AllocationLimit limit(1024 * 1024);
    receive(5, {5, 0, 8U << 20});
    EXPECT_EQ(logged("no memory for message 6 with 8388620 bytes"), 1U);
    receive(5, {5, 0, 1});
    expect({report, report, "send 6: 5 0 1 41"});
}

TEST_F(Session, WarmFragmentAllocatesTheTextOfItsReportAlone) {
    table("<Partition><img_id>5</img_id><Image_Path>large</Image_Path></Partition>");
    image("large", std::string(1 << 20, 'L'));
    marlo_fw_updater updater([](glink_conn_config) { return std::make_unique<SilentTransport>(); });
    SilentCallback callback;
    updater.startMarloDownloaderWithCallback(&callback);
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::none);  // the test's log allocates
    std::vector<size_t> made;
    for (uint32_t offset = 0; offset < 100 * 4096; offset += 4096) {
        const Bytes request = message(5, {5, offset, 4096});
        const size_t before = allocations_of_this_thread();
        updater.conn_res_event_cb(request.data(), static_cast<uint32_t>(request.size()));
        made.push_back(allocations_of_this_thread() - before);
    }
    marlo_deamon_log::set_level(marlo_deamon_log::log_level::verbose);
    made.erase(made.begin());  // the first one makes the message's buffer
    EXPECT_THAT(made, testing::Each(1U));
}

TEST_F(Session, EndIsAnsweredReleasesTheImagesAndMayBeFollowedByAnUpdate) {
    begin();
    receive(11);
    EXPECT_FALSE(updater_.checkForFlashbin());
    transport_->fail(GLINK_IO_ERROR);  // finished: nothing to resume
    expect({"info Received SESSION_END_REQ",
            "info Time taken in sec to update Firmware = 1700000000.000000", "send 12: 0 0 0",
            "property 1", "success ### Marlo Firmware Update finished. ###"});
    EXPECT_EQ(logged("E conn_error_cb:"), 1U);
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
    EXPECT_FALSE(updater_.checkForFlashbin());
    transport_->fail(GLINK_SSR);
    expect({"send 12: 0 0 0", "send 13: 1 0 0", "started ### Getting Marlo DFU State. ###"});
}

TEST_F(Session, UpdateRequest) {
    begin();
    EXPECT_EQ(updater_.send_aon_request(12, nullptr, 0), 16);
    script_.results = {-5, 0, 1};
    for (int tries = 0; tries < 3; ++tries) {
        updater_.marloFirmwareUpdateReq();
    }
    expect({"send 12:", kUpdateRequest, kUpdateRequest, kUpdateRequest, "property 0",
            "started ### Starting Marlo Firmware Update. ###"});
    image("./flash.bin", "");
    start();
    updater_.marloFirmwareUpdateReq();
    expect({"error AON Flash bin file is empty or not present"});
    EXPECT_EQ(logged("flash.bin file is not found"), 1U);
}

TEST_F(Session, FailedOpenDeletesTheTransportInsideConnect) {
    script_.opens = false;
    updater_.startMarloDownloaderWithCallback(&recording_);
    expect({"make glink_pkt_marlo_dfu 44", "connect with reader",
            "channel-error Marlo dfu channel open failed", "delete", "ended MarloDownloader END"});
    updater_.eraseAllRAWPartitionAndContinueDownload();
    updater_.getCurrentDFUStateAndContinueDownload();
    EXPECT_EQ(logged(", glinkInterface == nullptr"), 2U);
    EXPECT_EQ(updater_.send_aon_request(12, nullptr, 0), 0);
    EXPECT_EQ(logged(", glinkInterface != nullptr"), 1U);
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
}

TEST_F(Session, RuntimeErrorOfTheLastReportIsCaught) {
    begin();
    recording_.on_report = [](const std::string&) { throw std::runtime_error("why"); };
    updater_.endMarloDownloader();
    expect({"delete", "ended MarloDownloader END"});
    EXPECT_EQ(logged("FATAL: failed : why"), 1U);
}

TEST_F(Session, MessageAboveFortyFourBytesEndsTheProcess) {
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
